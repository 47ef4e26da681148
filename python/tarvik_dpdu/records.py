"""The records of the D-PDU API as ctypes structures, field by field as in its C headers.

They have the natural alignment of the system. No field is a C `long`, whose size differs between
Linux and Windows.
"""

from ctypes import POINTER, Structure, c_char, c_char_p, c_int32, c_uint8, c_uint16, c_uint32, c_void_p


class PDU_ITEM(Structure):
    _fields_ = [
        ("ItemType", c_uint32),
    ]


class PDU_DATA_ITEM(Structure):
    _fields_ = [
        ("ItemType", c_uint32),
        ("pData", c_void_p),
    ]


class PDU_IO_PROG_VOLTAGE_DATA(Structure):
    _fields_ = [
        ("ProgVoltage_mv", c_uint32),
        ("PinOnDLC", c_uint32),
    ]


class PDU_IO_BYTEARRAY_DATA(Structure):
    _fields_ = [
        ("DataSize", c_uint32),
        ("pData", POINTER(c_uint8)),
    ]


class PDU_IO_FILTER_DATA(Structure):
    _fields_ = [
        ("FilterType", c_uint32),
        ("FilterNumber", c_uint32),
        ("FilterCompareSize", c_uint32),
        ("FilterMaskMessage", c_uint8 * 12),
        ("FilterPatternMessage", c_uint8 * 12),
    ]


class PDU_IO_FILTER_LIST(Structure):
    _fields_ = [
        ("NumFilterEntries", c_uint32),
        ("pFilterData", POINTER(PDU_IO_FILTER_DATA)),
    ]


class PDU_IO_EVENT_QUEUE_PROPERTY_DATA(Structure):
    _fields_ = [
        ("QueueSize", c_uint32),
        ("QueueMode", c_uint32),
    ]


class PDU_IP_ADDR_INFO(Structure):
    _fields_ = [
        ("IpVersion", c_uint32),
        ("pAddress", POINTER(c_uint8)),
    ]


class PDU_IO_VEHICLE_ID_REQUEST(Structure):
    _fields_ = [
        ("PreselectionMode", c_uint32),
        ("PreselectionValue", c_char_p),
        ("CombinationMode", c_uint32),
        ("VehicleDiscoveryTime", c_uint32),
        ("NumDestinationAddresses", c_uint32),
        ("pDestinationAddresses", POINTER(PDU_IP_ADDR_INFO)),
    ]


class PDU_IO_ETH_SWITCH_STATE(Structure):
    _fields_ = [
        ("EthernetSenseState", c_uint32),
        ("EthernetActPinNumber", c_uint32),
    ]


class PDU_IO_ENTITY_ADDRESS_DATA(Structure):
    _fields_ = [
        ("LogicalAddress", c_uint32),
        ("DoIPCtrlTimeout", c_uint32),
    ]


class PDU_IO_ENTITY_STATUS_DATA(Structure):
    _fields_ = [
        ("EntityType", c_uint32),
        ("TcpClientsMax", c_uint32),
        ("TcpClients", c_uint32),
        ("MaxDataSize", c_uint32),
    ]


class PDU_IO_TLS_CERT_DATA(Structure):
    _fields_ = [
        ("CertLen", c_uint32),
        ("CertBuffer", POINTER(c_uint8)),
    ]


class PDU_IO_TLS_CERT_CHAIN_DATA(Structure):
    _fields_ = [
        ("NumCertificates", c_uint32),
        ("pTlsCertData", POINTER(PDU_IO_TLS_CERT_DATA)),
    ]


class PDU_IO_TLS_CERTIFICATE(Structure):
    _fields_ = [
        ("NumCertChains", c_uint32),
        ("pTlsCertChainData", POINTER(PDU_IO_TLS_CERT_CHAIN_DATA)),
    ]


class PDU_PARAM_ITEM(Structure):
    _fields_ = [
        ("ItemType", c_uint32),
        ("ComParamId", c_uint32),
        ("ComParamDataType", c_uint32),
        ("ComParamClass", c_uint32),
        ("pComParamData", c_void_p),
    ]


class PDU_PARAM_BYTEFIELD_DATA(Structure):
    _fields_ = [
        ("ParamMaxLen", c_uint32),
        ("ParamActLen", c_uint32),
        ("pDataArray", POINTER(c_uint8)),
    ]


class PDU_PARAM_LONGFIELD_DATA(Structure):
    _fields_ = [
        ("ParamMaxLen", c_uint32),
        ("ParamActLen", c_uint32),
        ("pDataArray", POINTER(c_uint32)),
    ]


class PDU_PARAM_STRUCTFIELD_DATA(Structure):
    _fields_ = [
        ("ComParamStructType", c_uint32),
        ("ParamMaxEntries", c_uint32),
        ("ParamActEntries", c_uint32),
        ("pStructArray", c_void_p),
    ]


class PDU_PARAM_STRUCT_SESS_TIMING(Structure):
    _fields_ = [
        ("session", c_uint16),
        ("P2Max_high", c_uint8),
        ("P2Max_low", c_uint8),
        ("P2Star_high", c_uint8),
        ("P2Star_low", c_uint8),
    ]


class PDU_PARAM_STRUCT_ACCESS_TIMING(Structure):
    _fields_ = [
        ("P2Min", c_uint8),
        ("P2Max", c_uint8),
        ("P3Min", c_uint8),
        ("P3Max", c_uint8),
        ("P4Min", c_uint8),
        ("TimingSet", c_uint8),
    ]


class PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER(Structure):
    _fields_ = [
        ("TlsMajorVersion", c_uint8),
        ("TlsMinorVersion", c_uint8),
        ("CipherActEntries", c_uint8),
        ("CipherList", c_uint16 * 5),
    ]


class PDU_MODULE_DATA(Structure):
    _fields_ = [
        ("ModuleTypeId", c_uint32),
        ("hMod", c_uint32),
        ("pVendorModuleName", c_char_p),
        ("pVendorAdditionalInfo", c_char_p),
        ("ModuleStatus", c_uint32),
    ]


class PDU_MODULE_ITEM(Structure):
    _fields_ = [
        ("ItemType", c_uint32),
        ("NumEntries", c_uint32),
        ("pModuleData", POINTER(PDU_MODULE_DATA)),
    ]


class PDU_RSC_ID_ITEM_DATA(Structure):
    _fields_ = [
        ("hMod", c_uint32),
        ("NumIds", c_uint32),
        ("pResourceIdArray", POINTER(c_uint32)),
    ]


class PDU_RSC_ID_ITEM(Structure):
    _fields_ = [
        ("ItemType", c_uint32),
        ("NumModules", c_uint32),
        ("pResourceIdDataArray", POINTER(PDU_RSC_ID_ITEM_DATA)),
    ]


class PDU_PIN_DATA(Structure):
    _fields_ = [
        ("DLCPinNumber", c_uint32),
        ("DLCPinTypeId", c_uint32),
    ]


class PDU_RSC_DATA(Structure):
    _fields_ = [
        ("BusTypeId", c_uint32),
        ("ProtocolId", c_uint32),
        ("NumPinData", c_uint32),
        ("pDLCPinData", POINTER(PDU_PIN_DATA)),
    ]


class PDU_RSC_STATUS_DATA(Structure):
    _fields_ = [
        ("hMod", c_uint32),
        ("ResourceId", c_uint32),
        ("ResourceStatus", c_uint32),
    ]


class PDU_RSC_STATUS_ITEM(Structure):
    _fields_ = [
        ("ItemType", c_uint32),
        ("NumEntries", c_uint32),
        ("pResourceStatusData", POINTER(PDU_RSC_STATUS_DATA)),
    ]


class PDU_RSC_CONFLICT_DATA(Structure):
    _fields_ = [
        ("hMod", c_uint32),
        ("ResourceId", c_uint32),
    ]


class PDU_RSC_CONFLICT_ITEM(Structure):
    _fields_ = [
        ("ItemType", c_uint32),
        ("NumEntries", c_uint32),
        ("pRscConflictData", POINTER(PDU_RSC_CONFLICT_DATA)),
    ]


class PDU_ECU_UNIQUE_RESP_DATA(Structure):
    _fields_ = [
        ("UniqueRespIdentifier", c_uint32),
        ("NumParamItems", c_uint32),
        ("pParams", POINTER(PDU_PARAM_ITEM)),
    ]


class PDU_UNIQUE_RESP_ID_TABLE_ITEM(Structure):
    _fields_ = [
        ("ItemType", c_uint32),
        ("NumEntries", c_uint32),
        ("pUniqueData", POINTER(PDU_ECU_UNIQUE_RESP_DATA)),
    ]


class PDU_EVENT_ITEM(Structure):
    _fields_ = [
        ("ItemType", c_uint32),
        ("hCop", c_uint32),
        ("pCoPTag", c_void_p),
        ("Timestamp", c_uint32),
        ("pData", c_void_p),
    ]


class PDU_INFO_DATA(Structure):
    _fields_ = [
        ("InfoCode", c_uint32),
        ("ExtraInfoData", c_uint32),
    ]


class PDU_ERROR_DATA(Structure):
    _fields_ = [
        ("ErrorCodeId", c_uint32),
        ("ExtraErrorInfoId", c_uint32),
    ]


class PDU_FLAG_DATA(Structure):
    _fields_ = [
        ("NumFlagBytes", c_uint32),
        ("pFlagData", POINTER(c_uint8)),
    ]


class PDU_EXTRA_INFO(Structure):
    _fields_ = [
        ("NumHeaderBytes", c_uint32),
        ("NumFooterBytes", c_uint32),
        ("pHeaderBytes", POINTER(c_uint8)),
        ("pFooterBytes", POINTER(c_uint8)),
    ]


class PDU_RESULT_DATA(Structure):
    _fields_ = [
        ("RxFlag", PDU_FLAG_DATA),
        ("UniqueRespIdentifier", c_uint32),
        ("AcceptanceId", c_uint32),
        ("TimestampFlags", PDU_FLAG_DATA),
        ("TxMsgDoneTimestamp", c_uint32),
        ("StartMsgTimestamp", c_uint32),
        ("pExtraInfo", POINTER(PDU_EXTRA_INFO)),
        ("NumDataBytes", c_uint32),
        ("pDataBytes", POINTER(c_uint8)),
    ]


class PDU_EXP_RESP_DATA(Structure):
    _fields_ = [
        ("ResponseType", c_uint32),
        ("AcceptanceId", c_uint32),
        ("NumMaskPatternBytes", c_uint32),
        ("pMaskData", POINTER(c_uint8)),
        ("pPatternData", POINTER(c_uint8)),
        ("NumUniqueRespIds", c_uint32),
        ("pUniqueRespIds", POINTER(c_uint32)),
    ]


class PDU_COP_CTRL_DATA(Structure):
    _fields_ = [
        ("Time", c_uint32),
        ("NumSendCycles", c_int32),
        ("NumReceiveCycles", c_int32),
        ("TempParamUpdate", c_uint32),
        ("TxFlag", PDU_FLAG_DATA),
        ("NumPossibleExpectedResponses", c_uint32),
        ("pExpectedResponseArray", POINTER(PDU_EXP_RESP_DATA)),
    ]


class PDU_VERSION_DATA(Structure):
    _fields_ = [
        ("MVCI_Part1StandardVersion", c_uint32),
        ("MVCI_Part2StandardVersion", c_uint32),
        ("HwSerialNumber", c_uint32),
        ("HwName", c_char * 64),
        ("HwVersion", c_uint32),
        ("HwDate", c_uint32),
        ("HwInterface", c_uint32),
        ("FwName", c_char * 64),
        ("FwVersion", c_uint32),
        ("FwDate", c_uint32),
        ("VendorName", c_char * 64),
        ("PDUApiSwName", c_char * 64),
        ("PDUApiSwVersion", c_uint32),
        ("PDUApiSwDate", c_uint32),
    ]
