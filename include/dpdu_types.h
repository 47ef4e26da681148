// Types, constants and records of the D-PDU API (ISO 22900-2) for x86-64.
//
// For C99 and later and C++11 and later. Every record has the natural alignment of x86-64, without
// packing. Its size and offsets are checked after its declaration, so that a compiler with other
// settings reports an error instead of exchanging garbage with the library.
//
// Reading the comments:
// - "in" and "out" are seen from the application.
// - "here" means: in this library.
// - Whoever allocates a record also frees it. The exception are items that the library returns
//   through a pointer to a pointer: the application passes those to PDUDestroyItem, which releases
//   them with everything they point to.
// - Text is NUL-terminated, 8 bits a character (ISO 8859-1).
// - Arrays are given as a count and a pointer; the pointer may be null if the count is 0.

#ifndef DPDU_TYPES_H
#define DPDU_TYPES_H

#include <stddef.h>
#include <stdint.h>

// ---------------------------------------------------------------------------------------------
// Scalars
// ---------------------------------------------------------------------------------------------

typedef uint8_t UNUM8;    ///< unsigned, 8 bits
typedef int8_t SNUM8;     ///< signed, 8 bits
typedef uint16_t UNUM16;  ///< unsigned, 16 bits
typedef int16_t SNUM16;   ///< signed, 16 bits
typedef uint32_t UNUM32;  ///< unsigned, 32 bits on every system (never `unsigned long`)
typedef int32_t SNUM32;   ///< signed, 32 bits
typedef char CHAR8;       ///< one character of a text

// x86-64 has one C calling convention per system, so functions and callbacks need no keyword. The
// macro marks where the keyword would be.
#ifndef PDU_CALL
#define PDU_CALL
#endif

// Compile-time check for C99, which has no keyword for it, C11 and C++.
#if defined(__cplusplus)
#define PDU_STATIC_ASSERT_(condition, text) static_assert(condition, text)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define PDU_STATIC_ASSERT_(condition, text) _Static_assert(condition, text)
#else
#define PDU_STATIC_ASSERT_(condition, text) extern char pdu_static_assert_[(condition) ? 1 : -1]
#endif
#define PDU_CHECK_SIZE_(type, size) \
    PDU_STATIC_ASSERT_(sizeof(type) == (size), "size of " #type " is not " #size)
#define PDU_CHECK_FIELD_(type, field, offset)             \
    PDU_STATIC_ASSERT_(offsetof(type, field) == (offset), \
                       "offset of " #type "." #field " is not " #offset)

PDU_STATIC_ASSERT_(sizeof(void*) == 8, "the D-PDU API records are those of a 64-bit system");
PDU_STATIC_ASSERT_(sizeof(UNUM32) == 4 && sizeof(UNUM16) == 2 && sizeof(CHAR8) == 1,
                   "unexpected size of a scalar");

#ifdef __cplusplus
extern "C" {
#endif

/// "No handle": no module, link or ComPrimitive.
#define PDU_HANDLE_UNDEF 0xFFFFFFFFU
/// "No id": no object, resource or unique response id.
#define PDU_ID_UNDEF 0xFFFFFFFEU

// ---------------------------------------------------------------------------------------------
// Enumerations. Each is exactly 32 bits wide in memory and in calls. The values are unsigned
// literals: they need no conversion in C or C++ and also work in #if and in case labels.
// ---------------------------------------------------------------------------------------------

/// Type of an item; the first field of every item record.
typedef UNUM32 T_PDU_IT;
#define PDU_IT_IO_UNUM32 0x1000U                ///< PDUIoCtl: one UNUM32
#define PDU_IT_IO_PROG_VOLTAGE 0x1001U          ///< PDUIoCtl: PDU_IO_PROG_VOLTAGE_DATA
#define PDU_IT_IO_BYTEARRAY 0x1002U             ///< PDUIoCtl: PDU_IO_BYTEARRAY_DATA
#define PDU_IT_IO_FILTER 0x1003U                ///< PDUIoCtl: PDU_IO_FILTER_LIST
#define PDU_IT_IO_EVENT_QUEUE_PROPERTY 0x1004U  ///< PDUIoCtl: PDU_IO_EVENT_QUEUE_PROPERTY_DATA
#define PDU_IT_IO_TLS_CERTIFICATE 0x1005U       ///< PDUIoCtl: PDU_IO_TLS_CERTIFICATE (2022 edition)
#define PDU_IT_RSC_STATUS 0x1100U               ///< PDU_RSC_STATUS_ITEM
#define PDU_IT_PARAM 0x1200U                    ///< PDU_PARAM_ITEM
#define PDU_IT_RESULT 0x1300U                   ///< PDU_EVENT_ITEM with PDU_RESULT_DATA
#define PDU_IT_STATUS 0x1301U                   ///< PDU_EVENT_ITEM with PDU_STATUS_DATA
#define PDU_IT_ERROR 0x1302U                    ///< PDU_EVENT_ITEM with PDU_ERROR_DATA
#define PDU_IT_INFO 0x1303U                     ///< PDU_EVENT_ITEM with PDU_INFO_DATA
#define PDU_IT_RSC_ID 0x1400U                   ///< PDU_RSC_ID_ITEM
#define PDU_IT_RSC_CONFLICT 0x1500U             ///< PDU_RSC_CONFLICT_ITEM
#define PDU_IT_MODULE_ID 0x1600U                ///< PDU_MODULE_ITEM
#define PDU_IT_UNIQUE_RESP_ID_TABLE 0x1700U     ///< PDU_UNIQUE_RESP_ID_TABLE_ITEM
#define PDU_IT_IO_VEHICLE_ID_REQUEST 0x1800U    ///< PDUIoCtl: PDU_IO_VEHICLE_ID_REQUEST
#define PDU_IT_IO_ETH_SWITCH_STATE 0x1801U      ///< PDUIoCtl: PDU_IO_ETH_SWITCH_STATE
#define PDU_IT_IO_ENTITY_ADDRESS 0x1802U        ///< PDUIoCtl: PDU_IO_ENTITY_ADDRESS_DATA
#define PDU_IT_IO_ENTITY_STATUS 0x1803U         ///< PDUIoCtl: PDU_IO_ENTITY_STATUS_DATA

/// Type of a ComPrimitive.
typedef UNUM32 T_PDU_COPT;
#define PDU_COPT_STARTCOMM 0x8001U      ///< start communication, tester present included
#define PDU_COPT_STOPCOMM 0x8002U       ///< stop communication
#define PDU_COPT_UPDATEPARAM 0x8003U    ///< apply the ComParams that were set; no effect here
#define PDU_COPT_SENDRECV 0x8004U       ///< send a request and receive its responses
#define PDU_COPT_DELAY 0x8005U          ///< wait; here without effect and without an item
#define PDU_COPT_RESTORE_PARAM 0x8006U  ///< undo changes of ComParams; no effect here

/// Kind of object whose id PDUGetObjectId looks up.
typedef UNUM32 T_PDU_OBJT;
#define PDU_OBJT_PROTOCOL 0x8021U  ///< protocol
#define PDU_OBJT_BUSTYPE 0x8022U   ///< bus type
#define PDU_OBJT_IO_CTRL 0x8023U   ///< command of PDUIoCtl
#define PDU_OBJT_COMPARAM 0x8024U  ///< ComParam
#define PDU_OBJT_PINTYPE 0x8025U   ///< pin type
#define PDU_OBJT_RESOURCE 0x8026U  ///< resource

/// State of a ComPrimitive, of a link or of a module.
typedef UNUM32 T_PDU_STATUS;
#define PDU_COPST_IDLE 0x8010U          ///< ComPrimitive: queued
#define PDU_COPST_EXECUTING 0x8011U     ///< ComPrimitive: being executed
#define PDU_COPST_FINISHED 0x8012U      ///< ComPrimitive: done; no further items
#define PDU_COPST_CANCELLED 0x8013U     ///< ComPrimitive: cancelled; no further items
#define PDU_COPST_WAITING 0x8014U       ///< ComPrimitive: waiting for its cycle; never entered here
#define PDU_CLLST_OFFLINE 0x8050U       ///< link: created or disconnected
#define PDU_CLLST_ONLINE 0x8051U        ///< link: connected
#define PDU_CLLST_COMM_STARTED 0x8052U  ///< link: connected, communication started
#define PDU_MODST_READY 0x8060U         ///< module: connected
#define PDU_MODST_NOT_READY 0x8061U     ///< module: connected, not usable; never reported here
#define PDU_MODST_NOT_AVAIL 0x8062U     ///< module: known, but gone
#define PDU_MODST_AVAIL 0x8063U         ///< module: present, not connected

/// What an information item reports.
typedef UNUM32 T_PDU_INFO;
#define PDU_INFO_MODULE_LIST_CHG 0x8070U    ///< the list of modules changed
#define PDU_INFO_RSC_LOCK_CHG 0x8071U       ///< a resource lock changed; never raised here
#define PDU_INFO_PHYS_COMPARAM_CHG 0x8072U  ///< a physical ComParam changed; never raised here

/// Reason for calling the event callback.
typedef UNUM32 T_PDU_EVT_DATA;
#define PDU_EVT_DATA_AVAILABLE 0x0801U  ///< an item is in the event queue
#define PDU_EVT_DATA_LOST 0x0802U       ///< an item was lost; never raised here

/// Bits of PDU_RSC_STATUS_DATA.ResourceStatus (none is written here).
#define PDU_RSC_STATUS_IN_USE 0x1U                ///< the resource is in use
#define PDU_RSC_STATUS_NOT_AVAIL 0x2U             ///< the resource is not available
#define PDU_RSC_STATUS_TX_QUEUE_LOCKED 0x4U       ///< a link holds its transmit queue
#define PDU_RSC_STATUS_PHYS_COMPARAM_LOCKED 0x8U  ///< a link holds its physical ComParams

/// Bits of the lock mask of PDULockResource and PDUUnlockResource (without effect here).
#define PDU_LOCK_PHYS_COMPARAM 0x1U  ///< lock the physical ComParams
#define PDU_LOCK_PHYS_TX_QUEUE 0x2U  ///< lock the physical transmit queue

/// Result of every function. This library returns only the values marked with "*".
typedef UNUM32 T_PDU_ERROR;
#define PDU_STATUS_NOERROR 0x00U                      ///< * success
#define PDU_ERR_FCT_FAILED 0x01U                      ///< * the function failed
#define PDU_ERR_RESERVED_1 0x10U                      ///< reserved
#define PDU_ERR_COMM_PC_TO_VCI_FAILED 0x11U           ///< no communication with the module
#define PDU_ERR_PDUAPI_NOT_CONSTRUCTED 0x20U          ///< * PDUConstruct has not been called
#define PDU_ERR_SHARING_VIOLATION 0x21U               ///< * PDUConstruct has already been called
#define PDU_ERR_RESOURCE_BUSY 0x30U                   ///< the resource is in use
#define PDU_ERR_RESOURCE_TABLE_CHANGED 0x31U          ///< the resource table changed
#define PDU_ERR_RESOURCE_ERROR 0x32U                  ///< the resource failed
#define PDU_ERR_CLL_NOT_CONNECTED 0x40U               ///< * the link is offline
#define PDU_ERR_CLL_NOT_STARTED 0x41U                 ///< communication has not been started
#define PDU_ERR_INVALID_PARAMETERS 0x50U              ///< * a parameter is wrong
#define PDU_ERR_INVALID_HANDLE 0x60U                  ///< * no such module, link or ComPrimitive
#define PDU_ERR_VALUE_NOT_SUPPORTED 0x61U             ///< a value is not supported
#define PDU_ERR_ID_NOT_SUPPORTED 0x62U                ///< * the command is not supported
#define PDU_ERR_COMPARAM_NOT_SUPPORTED 0x63U          ///< * no such ComParam
#define PDU_ERR_COMPARAM_LOCKED 0x64U                 ///< the ComParam is locked
#define PDU_ERR_TX_QUEUE_FULL 0x70U                   ///< the transmit queue is full
#define PDU_ERR_EVENT_QUEUE_EMPTY 0x71U               ///< * no event item is waiting
#define PDU_ERR_VOLTAGE_NOT_SUPPORTED 0x80U           ///< the voltage is not supported
#define PDU_ERR_MUX_RSC_NOT_SUPPORTED 0x81U           ///< the pins cannot be switched this way
#define PDU_ERR_CABLE_UNKNOWN 0x82U                   ///< the cable is unknown
#define PDU_ERR_NO_CABLE_DETECTED 0x83U               ///< there is no cable
#define PDU_ERR_CLL_CONNECTED 0x84U                   ///< * the link is online already
#define PDU_ERR_TEMPPARAM_NOT_ALLOWED 0x90U           ///< temporary ComParams are not allowed
#define PDU_ERR_RSC_LOCKED 0xA0U                      ///< the resource is locked
#define PDU_ERR_RSC_LOCKED_BY_OTHER_CLL 0xA1U         ///< another link holds the lock
#define PDU_ERR_RSC_NOT_LOCKED 0xA2U                  ///< the resource is not locked
#define PDU_ERR_MODULE_NOT_CONNECTED 0xA3U            ///< the module is not connected
#define PDU_ERR_API_SW_OUT_OF_DATE 0xA4U              ///< the library is too old for the module
#define PDU_ERR_MODULE_FW_OUT_OF_DATE 0xA5U           ///< the module's firmware is too old
#define PDU_ERR_PIN_NOT_CONNECTED 0xA6U               ///< the pin is not connected
#define PDU_ERR_IP_PROTOCOL_NOT_SUPPORTED 0xB0U       ///< IP version not supported
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_FAILED 0xB1U  ///< routing activation failed
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_AUTHENTICATION_FAILED 0xB2U  ///< wrong credentials
#define PDU_ERR_DOIP_AMBIGUOUS_LOGICAL_ADDRESS 0xB3U  ///< two entities with one address
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_INVALID_SOURCE_ADDRESS 0xB4U    ///< unknown tester address
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_NO_DATA_SOCKET_AVAILABLE 0xB5U  ///< all sockets taken
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_SOURCE_ADDRESS_CHANGED 0xB6U    ///< tester address changed
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_SOURCE_ADDRESS_IN_USE 0xB7U     ///< tester address in use
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_CONFIRMATION_REJECTED 0xB8U     ///< refused by the vehicle
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_TYPE_UNSUPPORTED 0xB9U          ///< activation type unknown
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_RESPONSE_CODE_UNKNOWN 0xBAU     ///< answer not understood
#define PDU_ERR_DOIP_ROUTING_ACTIVATION_RESPONSE_TIMEOUT 0xBBU          ///< no answer to activation
#define PDU_ERR_DOIP_RESPONSE_TIMEOUT 0xBCU                             ///< no answer
#define PDU_ERR_TLS_REQUIRED 0xBDU                                      ///< the entity wants TLS
#define PDU_ERR_TLS_CONF_INCOMPLETE 0xBEU                               ///< TLS set-up incomplete
#define PDU_ERR_TLS_VERSION_AGREEMENT_FAILED 0xBFU                      ///< no common TLS version
#define PDU_ERR_TLS_CIPHER_AGREEMENT_FAILED 0xC0U                       ///< no common cipher
#define PDU_ERR_TLS_CERT_VERIFY_FAILED 0xC1U                            ///< certificate refused
#define PDU_ERR_TLS_VERSION_NOT_SUPPORTED 0xC2U  ///< TLS version not supported
#define PDU_ERR_TLS_CIPHER_NOT_SUPPORTED 0xC3U   ///< cipher not supported

/// Code of an error item.
typedef UNUM32 T_PDU_ERR_EVT;
#define PDU_ERR_EVT_NOERROR 0x000U               ///< no error
#define PDU_ERR_EVT_FRAME_STRUCT 0x100U          ///< malformed frame
#define PDU_ERR_EVT_TX_ERROR 0x101U              ///< sending failed; here: nothing was received
#define PDU_ERR_EVT_TESTER_PRESENT_ERROR 0x102U  ///< tester present failed
#define PDU_ERR_EVT_RX_TIMEOUT 0x103U            ///< no answer; here: none that was expected
#define PDU_ERR_EVT_RX_ERROR 0x104U              ///< receiving failed
#define PDU_ERR_EVT_PROT_ERR 0x105U              ///< protocol error
#define PDU_ERR_EVT_LOST_COMM_TO_VCI 0x106U      ///< the module is gone
#define PDU_ERR_EVT_VCI_HARDWARE_FAULT 0x107U    ///< the module is broken
#define PDU_ERR_EVT_INIT_ERROR 0x108U            ///< initialisation failed
#define PDU_ERR_EVT_RSC_LOCKED 0x109U            ///< the resource is locked

/// Data type of a ComParam; decides what PDU_PARAM_ITEM.pComParamData points to.
typedef UNUM32 T_PDU_PT;
#define PDU_PT_UNUM8 0x101U        ///< one UNUM8
#define PDU_PT_SNUM8 0x102U        ///< one SNUM8
#define PDU_PT_UNUM16 0x103U       ///< one UNUM16
#define PDU_PT_SNUM16 0x104U       ///< one SNUM16
#define PDU_PT_UNUM32 0x105U       ///< one UNUM32
#define PDU_PT_SNUM32 0x106U       ///< one SNUM32
#define PDU_PT_BYTEFIELD 0x107U    ///< PDU_PARAM_BYTEFIELD_DATA
#define PDU_PT_STRUCTFIELD 0x108U  ///< PDU_PARAM_STRUCTFIELD_DATA
#define PDU_PT_LONGFIELD 0x109U    ///< PDU_PARAM_LONGFIELD_DATA

/// Class of a ComParam.
typedef UNUM32 T_PDU_PC;
#define PDU_PC_TIMING 1U          ///< timing
#define PDU_PC_INIT 2U            ///< initialisation
#define PDU_PC_COM 3U             ///< communication
#define PDU_PC_ERRHDL 4U          ///< error handling
#define PDU_PC_BUSTYPE 5U         ///< physical layer
#define PDU_PC_UNIQUE_ID 6U       ///< identifies a control unit; used in unique response tables
#define PDU_PC_TESTER_PRESENT 7U  ///< tester present

/// Type of the entries of a struct field.
typedef UNUM32 T_PDU_CPST;
#define PDU_CPST_SESSION_TIMING 1U  ///< PDU_PARAM_STRUCT_SESS_TIMING
#define PDU_CPST_ACCESS_TIMING 2U   ///< PDU_PARAM_STRUCT_ACCESS_TIMING
#define PDU_CPST_TLS_VERSION_AND_CIPHER \
    3U  ///< PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER; not used here

/// Type of a message filter (filters have no effect here).
typedef UNUM32 T_PDU_FILTER;
#define PDU_FLT_PASS 0x01U        ///< let matching segmented messages pass
#define PDU_FLT_BLOCK 0x02U       ///< block matching segmented messages
#define PDU_FLT_PASS_UUDT 0x11U   ///< let matching unsegmented messages pass
#define PDU_FLT_BLOCK_UUDT 0x12U  ///< block matching unsegmented messages

/// What a full event queue does (the property cannot be set here; queues are unlimited).
typedef UNUM32 T_PDU_QUEUE_MODE;
#define PDU_QUE_UNLIMITED 0U  ///< grows
#define PDU_QUE_LIMITED 1U    ///< drops new items
#define PDU_QUE_CIRCULAR 2U   ///< drops old items

// ---------------------------------------------------------------------------------------------
// Flag bits. A flag is an array of bytes, normally four, byte 0 first; the number in a name is the
// byte that the mask belongs to. Bits without a name are 0. "raw": only on a raw link.
// ---------------------------------------------------------------------------------------------

// Creation flag of a link.
#define PDU_CREATE_FLAG0_RAW_MODE 0x80U  ///< raw link: the application sees whole frames
#define PDU_CREATE_FLAG0_CHECKSUM 0x40U  ///< raw: the library adds the checksum

// PDU_COP_CTRL_DATA.TxFlag
#define PDU_TX_FLAG0_SUPPRESS_POS_RESP 0x40U  ///< suppress the positive response
#define PDU_TX_FLAG0_ENABLE_EXTRA_INFO 0x20U  ///< attach PDU_EXTRA_INFO to results
#define PDU_TX_FLAG2_WAIT_P3_MIN_ONLY 0x02U   ///< raw: wait only P3Min after a physical response
#define PDU_TX_FLAG2_CAN_29BIT_ID 0x01U       ///< raw: the CAN identifier has 29 bits
#define PDU_TX_FLAG3_EXT_ADDR 0x80U           ///< raw: an extended address follows the identifier
#define PDU_TX_FLAG3_FRAME_PAD 0x40U          ///< raw: pad frames

// PDU_RESULT_DATA.RxFlag
#define PDU_RX_FLAG0_REMOTE_FRAME 0x80U       ///< remote frame
#define PDU_RX_FLAG1_SPEED_CHANGE 0x04U       ///< the bus speed changed
#define PDU_RX_FLAG1_ECU_TIMING_CHANGE 0x02U  ///< the control unit's timing changed
#define PDU_RX_FLAG1_SW_CAN_HV_MSG 0x01U      ///< single-wire CAN: high-voltage message
#define PDU_RX_FLAG2_CAN_29BIT_ID 0x01U       ///< raw: the CAN identifier has 29 bits
#define PDU_RX_FLAG3_EXT_ADDR 0x80U           ///< raw: extended addressing
#define PDU_RX_FLAG3_SEGMENTED 0x40U          ///< raw: the message came in segments
#define PDU_RX_FLAG3_PADDING_ERROR 0x10U      ///< raw: fewer than 8 bytes in the frame
#define PDU_RX_FLAG3_TX_DONE 0x08U            ///< a transmission was completed
#define PDU_RX_FLAG3_BREAK 0x04U              ///< break received
#define PDU_RX_FLAG3_START_OF_MESSAGE 0x02U   ///< a message begins
#define PDU_RX_FLAG3_LOOPBACK 0x01U           ///< echo of the tester's own transmission

// PDU_RESULT_DATA.TimestampFlags
#define PDU_TIMESTAMP_FLAG0_TX_MSG_DONE 0x80U  ///< TxMsgDoneTimestamp is valid
#define PDU_TIMESTAMP_FLAG0_START_MSG 0x40U    ///< StartMsgTimestamp is valid

// ---------------------------------------------------------------------------------------------
// Items in general
// ---------------------------------------------------------------------------------------------

/// Common start of every item; what PDUDestroyItem takes. ItemType decides which record it is.
typedef struct PDU_ITEM_ {
    T_PDU_IT ItemType;  ///< PDU_IT_...
} PDU_ITEM;
PDU_CHECK_SIZE_(PDU_ITEM, 4);
PDU_CHECK_FIELD_(PDU_ITEM, ItemType, 0);

// ---------------------------------------------------------------------------------------------
// PDUIoCtl
// ---------------------------------------------------------------------------------------------

/// Input or output of PDUIoCtl. An input belongs to the application. The library returns an output,
/// which the application passes to PDUDestroyItem.
typedef struct PDU_DATA_ITEM_ {
    T_PDU_IT ItemType;  ///< PDU_IT_IO_...
    void* pData;        ///< the record that the type names; a UNUM32 for PDU_IT_IO_UNUM32
} PDU_DATA_ITEM;
PDU_CHECK_SIZE_(PDU_DATA_ITEM, 16);
PDU_CHECK_FIELD_(PDU_DATA_ITEM, ItemType, 0);
PDU_CHECK_FIELD_(PDU_DATA_ITEM, pData, 8);

/// PDU_IT_IO_PROG_VOLTAGE: a programming voltage. No command of this library takes it.
typedef struct PDU_IO_PROG_VOLTAGE_DATA_ {
    UNUM32 ProgVoltage_mv;  ///< millivolts
    UNUM32 PinOnDLC;        ///< pin of the vehicle connector
} PDU_IO_PROG_VOLTAGE_DATA;
PDU_CHECK_SIZE_(PDU_IO_PROG_VOLTAGE_DATA, 8);
PDU_CHECK_FIELD_(PDU_IO_PROG_VOLTAGE_DATA, ProgVoltage_mv, 0);
PDU_CHECK_FIELD_(PDU_IO_PROG_VOLTAGE_DATA, PinOnDLC, 4);

/// PDU_IT_IO_BYTEARRAY: plain bytes. No command of this library takes it.
typedef struct PDU_IO_BYTEARRAY_DATA_ {
    UNUM32 DataSize;  ///< bytes at pData
    UNUM8* pData;     ///< owned by whoever owns the item
} PDU_IO_BYTEARRAY_DATA;
PDU_CHECK_SIZE_(PDU_IO_BYTEARRAY_DATA, 16);
PDU_CHECK_FIELD_(PDU_IO_BYTEARRAY_DATA, DataSize, 0);
PDU_CHECK_FIELD_(PDU_IO_BYTEARRAY_DATA, pData, 8);

/// One message filter. The filter commands of this library accept and ignore it.
typedef struct PDU_IO_FILTER_DATA_ {
    T_PDU_FILTER FilterType;         ///< PDU_FLT_...
    UNUM32 FilterNumber;             ///< chosen by the application, to replace or stop the filter
    UNUM32 FilterCompareSize;        ///< how many of the 12 bytes count, 1 to 12
    UNUM8 FilterMaskMessage[12];     ///< bits that count
    UNUM8 FilterPatternMessage[12];  ///< their values
} PDU_IO_FILTER_DATA;
PDU_CHECK_SIZE_(PDU_IO_FILTER_DATA, 36);
PDU_CHECK_FIELD_(PDU_IO_FILTER_DATA, FilterType, 0);
PDU_CHECK_FIELD_(PDU_IO_FILTER_DATA, FilterNumber, 4);
PDU_CHECK_FIELD_(PDU_IO_FILTER_DATA, FilterCompareSize, 8);
PDU_CHECK_FIELD_(PDU_IO_FILTER_DATA, FilterMaskMessage, 12);
PDU_CHECK_FIELD_(PDU_IO_FILTER_DATA, FilterPatternMessage, 24);

/// PDU_IT_IO_FILTER: message filters.
typedef struct PDU_IO_FILTER_LIST_ {
    UNUM32 NumFilterEntries;          ///< entries of pFilterData
    PDU_IO_FILTER_DATA* pFilterData;  ///< owned by the application
} PDU_IO_FILTER_LIST;
PDU_CHECK_SIZE_(PDU_IO_FILTER_LIST, 16);
PDU_CHECK_FIELD_(PDU_IO_FILTER_LIST, NumFilterEntries, 0);
PDU_CHECK_FIELD_(PDU_IO_FILTER_LIST, pFilterData, 8);

/// PDU_IT_IO_EVENT_QUEUE_PROPERTY: size and mode of an event queue. The command is not supported.
typedef struct PDU_IO_EVENT_QUEUE_PROPERTY_DATA_ {
    UNUM32 QueueSize;            ///< items; ignored in unlimited mode
    T_PDU_QUEUE_MODE QueueMode;  ///< PDU_QUE_...
} PDU_IO_EVENT_QUEUE_PROPERTY_DATA;
PDU_CHECK_SIZE_(PDU_IO_EVENT_QUEUE_PROPERTY_DATA, 8);
PDU_CHECK_FIELD_(PDU_IO_EVENT_QUEUE_PROPERTY_DATA, QueueSize, 0);
PDU_CHECK_FIELD_(PDU_IO_EVENT_QUEUE_PROPERTY_DATA, QueueMode, 4);

/// One IP address.
typedef struct PDU_IP_ADDR_INFO_ {
    UNUM32 IpVersion;  ///< 4 or 6
    UNUM8* pAddress;   ///< 4 or 16 bytes in network order; owned by the application
} PDU_IP_ADDR_INFO;
PDU_CHECK_SIZE_(PDU_IP_ADDR_INFO, 16);
PDU_CHECK_FIELD_(PDU_IP_ADDR_INFO, IpVersion, 0);
PDU_CHECK_FIELD_(PDU_IP_ADDR_INFO, pAddress, 8);

/// PDU_IT_IO_VEHICLE_ID_REQUEST: which DoIP entities should identify themselves.
typedef struct PDU_IO_VEHICLE_ID_REQUEST_ {
    UNUM32 PreselectionMode;         ///< 0 none, 1 by VIN, 2 by EID
    CHAR8* PreselectionValue;        ///< VIN or EID as text; may be null
    UNUM32 CombinationMode;          ///< 0 none, 1 by VIN, 2 by group id, 3 all
    UNUM32 VehicleDiscoveryTime;     ///< milliseconds; 0: do not wait
    UNUM32 NumDestinationAddresses;  ///< entries of pDestinationAddresses; may be 0
    PDU_IP_ADDR_INFO*
        pDestinationAddresses;  ///< owned by the application; may be null if there are none
} PDU_IO_VEHICLE_ID_REQUEST;
PDU_CHECK_SIZE_(PDU_IO_VEHICLE_ID_REQUEST, 40);
PDU_CHECK_FIELD_(PDU_IO_VEHICLE_ID_REQUEST, PreselectionMode, 0);
PDU_CHECK_FIELD_(PDU_IO_VEHICLE_ID_REQUEST, PreselectionValue, 8);
PDU_CHECK_FIELD_(PDU_IO_VEHICLE_ID_REQUEST, CombinationMode, 16);
PDU_CHECK_FIELD_(PDU_IO_VEHICLE_ID_REQUEST, VehicleDiscoveryTime, 20);
PDU_CHECK_FIELD_(PDU_IO_VEHICLE_ID_REQUEST, NumDestinationAddresses, 24);
PDU_CHECK_FIELD_(PDU_IO_VEHICLE_ID_REQUEST, pDestinationAddresses, 32);

/// PDU_IT_IO_ETH_SWITCH_STATE: the Ethernet activation line.
typedef struct PDU_IO_ETH_SWITCH_STATE_ {
    UNUM32 EthernetSenseState;    ///< 0 off, 1 on
    UNUM32 EthernetActPinNumber;  ///< pin of the vehicle connector, normally 8
} PDU_IO_ETH_SWITCH_STATE;
PDU_CHECK_SIZE_(PDU_IO_ETH_SWITCH_STATE, 8);
PDU_CHECK_FIELD_(PDU_IO_ETH_SWITCH_STATE, EthernetSenseState, 0);
PDU_CHECK_FIELD_(PDU_IO_ETH_SWITCH_STATE, EthernetActPinNumber, 4);

/// PDU_IT_IO_ENTITY_ADDRESS: the DoIP entity that is asked.
typedef struct PDU_IO_ENTITY_ADDRESS_DATA_ {
    UNUM32 LogicalAddress;   ///< DoIP logical address
    UNUM32 DoIPCtrlTimeout;  ///< milliseconds
} PDU_IO_ENTITY_ADDRESS_DATA;
PDU_CHECK_SIZE_(PDU_IO_ENTITY_ADDRESS_DATA, 8);
PDU_CHECK_FIELD_(PDU_IO_ENTITY_ADDRESS_DATA, LogicalAddress, 0);
PDU_CHECK_FIELD_(PDU_IO_ENTITY_ADDRESS_DATA, DoIPCtrlTimeout, 4);

/// PDU_IT_IO_ENTITY_STATUS: what a DoIP entity reports about itself. Returned by the library.
typedef struct PDU_IO_ENTITY_STATUS_DATA_ {
    UNUM32 EntityType;     ///< 0 gateway, 1 node
    UNUM32 TcpClientsMax;  ///< sockets that may be open at once
    UNUM32 TcpClients;     ///< sockets open now
    UNUM32 MaxDataSize;    ///< longest request in bytes; 0: not reported
} PDU_IO_ENTITY_STATUS_DATA;
PDU_CHECK_SIZE_(PDU_IO_ENTITY_STATUS_DATA, 16);
PDU_CHECK_FIELD_(PDU_IO_ENTITY_STATUS_DATA, EntityType, 0);
PDU_CHECK_FIELD_(PDU_IO_ENTITY_STATUS_DATA, TcpClientsMax, 4);
PDU_CHECK_FIELD_(PDU_IO_ENTITY_STATUS_DATA, TcpClients, 8);
PDU_CHECK_FIELD_(PDU_IO_ENTITY_STATUS_DATA, MaxDataSize, 12);

/// One certificate (2022 edition). No command of this library takes it.
typedef struct PDU_IO_TLS_CERT_DATA_ {
    UNUM32 CertLen;     ///< bytes at CertBuffer
    UNUM8* CertBuffer;  ///< owned by the application
} PDU_IO_TLS_CERT_DATA;
PDU_CHECK_SIZE_(PDU_IO_TLS_CERT_DATA, 16);
PDU_CHECK_FIELD_(PDU_IO_TLS_CERT_DATA, CertLen, 0);
PDU_CHECK_FIELD_(PDU_IO_TLS_CERT_DATA, CertBuffer, 8);

/// One chain of certificates (2022 edition).
typedef struct PDU_IO_TLS_CERT_CHAIN_DATA_ {
    UNUM32 NumCertificates;              ///< entries of pTlsCertData
    PDU_IO_TLS_CERT_DATA* pTlsCertData;  ///< owned by the application
} PDU_IO_TLS_CERT_CHAIN_DATA;
PDU_CHECK_SIZE_(PDU_IO_TLS_CERT_CHAIN_DATA, 16);
PDU_CHECK_FIELD_(PDU_IO_TLS_CERT_CHAIN_DATA, NumCertificates, 0);
PDU_CHECK_FIELD_(PDU_IO_TLS_CERT_CHAIN_DATA, pTlsCertData, 8);

/// PDU_IT_IO_TLS_CERTIFICATE: chains of certificates (2022 edition).
typedef struct PDU_IO_TLS_CERTIFICATE_ {
    UNUM32 NumCertChains;                           ///< entries of pTlsCertChainData
    PDU_IO_TLS_CERT_CHAIN_DATA* pTlsCertChainData;  ///< owned by the application
} PDU_IO_TLS_CERTIFICATE;
PDU_CHECK_SIZE_(PDU_IO_TLS_CERTIFICATE, 16);
PDU_CHECK_FIELD_(PDU_IO_TLS_CERTIFICATE, NumCertChains, 0);
PDU_CHECK_FIELD_(PDU_IO_TLS_CERTIFICATE, pTlsCertChainData, 8);

// ---------------------------------------------------------------------------------------------
// ComParams
// ---------------------------------------------------------------------------------------------

/// One ComParam with its value. An item from PDUGetComParam is part of the library's own table and
/// is never freed by the application; otherwise the application owns the item and its value.
typedef struct PDU_PARAM_ITEM_ {
    T_PDU_IT ItemType;          ///< PDU_IT_PARAM
    UNUM32 ComParamId;          ///< from PDUGetObjectId; 1 to 228 in this library
    T_PDU_PT ComParamDataType;  ///< PDU_PT_...
    T_PDU_PC ComParamClass;     ///< PDU_PC_...
    void* pComParamData;        ///< number types: the number; field types: one of the records below
} PDU_PARAM_ITEM;
PDU_CHECK_SIZE_(PDU_PARAM_ITEM, 24);
PDU_CHECK_FIELD_(PDU_PARAM_ITEM, ItemType, 0);
PDU_CHECK_FIELD_(PDU_PARAM_ITEM, ComParamId, 4);
PDU_CHECK_FIELD_(PDU_PARAM_ITEM, ComParamDataType, 8);
PDU_CHECK_FIELD_(PDU_PARAM_ITEM, ComParamClass, 12);
PDU_CHECK_FIELD_(PDU_PARAM_ITEM, pComParamData, 16);

/// PDU_PT_BYTEFIELD: bytes.
typedef struct PDU_PARAM_BYTEFIELD_DATA_ {
    UNUM32 ParamMaxLen;  ///< room at pDataArray, bytes
    UNUM32 ParamActLen;  ///< bytes in use; trusted
    UNUM8* pDataArray;   ///< owned like the item
} PDU_PARAM_BYTEFIELD_DATA;
PDU_CHECK_SIZE_(PDU_PARAM_BYTEFIELD_DATA, 16);
PDU_CHECK_FIELD_(PDU_PARAM_BYTEFIELD_DATA, ParamMaxLen, 0);
PDU_CHECK_FIELD_(PDU_PARAM_BYTEFIELD_DATA, ParamActLen, 4);
PDU_CHECK_FIELD_(PDU_PARAM_BYTEFIELD_DATA, pDataArray, 8);

/// PDU_PT_LONGFIELD: 32-bit words.
typedef struct PDU_PARAM_LONGFIELD_DATA_ {
    UNUM32 ParamMaxLen;  ///< room at pDataArray, words
    UNUM32 ParamActLen;  ///< words in use; trusted
    UNUM32* pDataArray;  ///< owned like the item
} PDU_PARAM_LONGFIELD_DATA;
PDU_CHECK_SIZE_(PDU_PARAM_LONGFIELD_DATA, 16);
PDU_CHECK_FIELD_(PDU_PARAM_LONGFIELD_DATA, ParamMaxLen, 0);
PDU_CHECK_FIELD_(PDU_PARAM_LONGFIELD_DATA, ParamActLen, 4);
PDU_CHECK_FIELD_(PDU_PARAM_LONGFIELD_DATA, pDataArray, 8);

/// PDU_PT_STRUCTFIELD: records of one type. A ComParam's struct type never changes.
typedef struct PDU_PARAM_STRUCTFIELD_DATA_ {
    T_PDU_CPST ComParamStructType;  ///< PDU_CPST_...
    UNUM32 ParamMaxEntries;         ///< room at pStructArray, entries
    UNUM32 ParamActEntries;         ///< entries in use; trusted
    void* pStructArray;  ///< array of the record that the type names; owned like the item
} PDU_PARAM_STRUCTFIELD_DATA;
PDU_CHECK_SIZE_(PDU_PARAM_STRUCTFIELD_DATA, 24);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCTFIELD_DATA, ComParamStructType, 0);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCTFIELD_DATA, ParamMaxEntries, 4);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCTFIELD_DATA, ParamActEntries, 8);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCTFIELD_DATA, pStructArray, 16);

/// PDU_CPST_SESSION_TIMING: the timing of one diagnostic session.
typedef struct PDU_PARAM_STRUCT_SESS_TIMING_ {
    UNUM16 session;     ///< session number
    UNUM8 P2Max_high;   ///< 1 ms, upper byte
    UNUM8 P2Max_low;    ///< 1 ms, lower byte
    UNUM8 P2Star_high;  ///< 10 ms, upper byte
    UNUM8 P2Star_low;   ///< 10 ms, lower byte
} PDU_PARAM_STRUCT_SESS_TIMING;
PDU_CHECK_SIZE_(PDU_PARAM_STRUCT_SESS_TIMING, 6);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_SESS_TIMING, session, 0);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_SESS_TIMING, P2Max_high, 2);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_SESS_TIMING, P2Max_low, 3);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_SESS_TIMING, P2Star_high, 4);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_SESS_TIMING, P2Star_low, 5);

/// PDU_CPST_ACCESS_TIMING: the access timing of ISO 14230.
typedef struct PDU_PARAM_STRUCT_ACCESS_TIMING_ {
    UNUM8 P2Min;      ///< 0.5 ms
    UNUM8 P2Max;      ///< see ISO 14230-2
    UNUM8 P3Min;      ///< 0.5 ms
    UNUM8 P3Max;      ///< 250 ms
    UNUM8 P4Min;      ///< 0.5 ms
    UNUM8 TimingSet;  ///< 1 default, 2 ECU override, 3 tester override, 4 normal, 0xFF extended
} PDU_PARAM_STRUCT_ACCESS_TIMING;
PDU_CHECK_SIZE_(PDU_PARAM_STRUCT_ACCESS_TIMING, 6);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_ACCESS_TIMING, P2Min, 0);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_ACCESS_TIMING, P2Max, 1);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_ACCESS_TIMING, P3Min, 2);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_ACCESS_TIMING, P3Max, 3);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_ACCESS_TIMING, P4Min, 4);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_ACCESS_TIMING, TimingSet, 5);

/// PDU_CPST_TLS_VERSION_AND_CIPHER (2022 edition): no ComParam of this library has this type.
typedef struct PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER_ {
    UNUM8 TlsMajorVersion;   ///< major version
    UNUM8 TlsMinorVersion;   ///< minor version
    UNUM8 CipherActEntries;  ///< entries of CipherList in use
    UNUM16 CipherList[5];    ///< cipher suites
} PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER;
PDU_CHECK_SIZE_(PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER, 14);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER, TlsMajorVersion, 0);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER, TlsMinorVersion, 1);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER, CipherActEntries, 2);
PDU_CHECK_FIELD_(PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER, CipherList, 4);

// ---------------------------------------------------------------------------------------------
// Modules and resources
// ---------------------------------------------------------------------------------------------

/// One module (dongle). Returned by the library as part of a PDU_MODULE_ITEM.
typedef struct PDU_MODULE_DATA_ {
    UNUM32 ModuleTypeId;           ///< module type of the module description file; 1 here
    UNUM32 hMod;                   ///< module handle
    CHAR8* pVendorModuleName;      ///< series of key='value'; the same for a dongle on every call
    CHAR8* pVendorAdditionalInfo;  ///< series of key='value'
    T_PDU_STATUS ModuleStatus;     ///< always PDU_MODST_AVAIL here; see PDUGetStatus
} PDU_MODULE_DATA;
PDU_CHECK_SIZE_(PDU_MODULE_DATA, 32);
PDU_CHECK_FIELD_(PDU_MODULE_DATA, ModuleTypeId, 0);
PDU_CHECK_FIELD_(PDU_MODULE_DATA, hMod, 4);
PDU_CHECK_FIELD_(PDU_MODULE_DATA, pVendorModuleName, 8);
PDU_CHECK_FIELD_(PDU_MODULE_DATA, pVendorAdditionalInfo, 16);
PDU_CHECK_FIELD_(PDU_MODULE_DATA, ModuleStatus, 24);

/// The list of modules. Returned by PDUGetModuleIds; PDUDestroyItem releases all of it.
typedef struct PDU_MODULE_ITEM_ {
    T_PDU_IT ItemType;             ///< PDU_IT_MODULE_ID
    UNUM32 NumEntries;             ///< entries of pModuleData
    PDU_MODULE_DATA* pModuleData;  ///< may be null if there are none
} PDU_MODULE_ITEM;
PDU_CHECK_SIZE_(PDU_MODULE_ITEM, 16);
PDU_CHECK_FIELD_(PDU_MODULE_ITEM, ItemType, 0);
PDU_CHECK_FIELD_(PDU_MODULE_ITEM, NumEntries, 4);
PDU_CHECK_FIELD_(PDU_MODULE_ITEM, pModuleData, 8);

/// The resources of one module.
typedef struct PDU_RSC_ID_ITEM_DATA_ {
    UNUM32 hMod;               ///< module handle
    UNUM32 NumIds;             ///< entries of pResourceIdArray
    UNUM32* pResourceIdArray;  ///< resource ids
} PDU_RSC_ID_ITEM_DATA;
PDU_CHECK_SIZE_(PDU_RSC_ID_ITEM_DATA, 16);
PDU_CHECK_FIELD_(PDU_RSC_ID_ITEM_DATA, hMod, 0);
PDU_CHECK_FIELD_(PDU_RSC_ID_ITEM_DATA, NumIds, 4);
PDU_CHECK_FIELD_(PDU_RSC_ID_ITEM_DATA, pResourceIdArray, 8);

/// Resources by module. Returned by PDUGetResourceIds; PDUDestroyItem releases all of it.
typedef struct PDU_RSC_ID_ITEM_ {
    T_PDU_IT ItemType;                           ///< PDU_IT_RSC_ID
    UNUM32 NumModules;                           ///< entries of pResourceIdDataArray; 1 here
    PDU_RSC_ID_ITEM_DATA* pResourceIdDataArray;  ///< one entry per module
} PDU_RSC_ID_ITEM;
PDU_CHECK_SIZE_(PDU_RSC_ID_ITEM, 16);
PDU_CHECK_FIELD_(PDU_RSC_ID_ITEM, ItemType, 0);
PDU_CHECK_FIELD_(PDU_RSC_ID_ITEM, NumModules, 4);
PDU_CHECK_FIELD_(PDU_RSC_ID_ITEM, pResourceIdDataArray, 8);

/// One pin of the vehicle connector. Ignored here.
typedef struct PDU_PIN_DATA_ {
    UNUM32 DLCPinNumber;  ///< pin number
    UNUM32 DLCPinTypeId;  ///< pin type id from PDUGetObjectId
} PDU_PIN_DATA;
PDU_CHECK_SIZE_(PDU_PIN_DATA, 8);
PDU_CHECK_FIELD_(PDU_PIN_DATA, DLCPinNumber, 0);
PDU_CHECK_FIELD_(PDU_PIN_DATA, DLCPinTypeId, 4);

/// What a resource must offer, or what a link should use. In; owned by the application.
typedef struct PDU_RSC_DATA_ {
    UNUM32 BusTypeId;           ///< bus type id from PDUGetObjectId
    UNUM32 ProtocolId;          ///< protocol id from PDUGetObjectId
    UNUM32 NumPinData;          ///< entries of pDLCPinData
    PDU_PIN_DATA* pDLCPinData;  ///< may be null
} PDU_RSC_DATA;
PDU_CHECK_SIZE_(PDU_RSC_DATA, 24);
PDU_CHECK_FIELD_(PDU_RSC_DATA, BusTypeId, 0);
PDU_CHECK_FIELD_(PDU_RSC_DATA, ProtocolId, 4);
PDU_CHECK_FIELD_(PDU_RSC_DATA, NumPinData, 8);
PDU_CHECK_FIELD_(PDU_RSC_DATA, pDLCPinData, 16);

/// State of one resource. Never written here.
typedef struct PDU_RSC_STATUS_DATA_ {
    UNUM32 hMod;            ///< in: module handle
    UNUM32 ResourceId;      ///< in: resource id
    UNUM32 ResourceStatus;  ///< out: PDU_RSC_STATUS_... bits
} PDU_RSC_STATUS_DATA;
PDU_CHECK_SIZE_(PDU_RSC_STATUS_DATA, 12);
PDU_CHECK_FIELD_(PDU_RSC_STATUS_DATA, hMod, 0);
PDU_CHECK_FIELD_(PDU_RSC_STATUS_DATA, ResourceId, 4);
PDU_CHECK_FIELD_(PDU_RSC_STATUS_DATA, ResourceStatus, 8);

/// Input and output of PDUGetResourceStatus. Unlike other items it belongs to the application.
typedef struct PDU_RSC_STATUS_ITEM_ {
    T_PDU_IT ItemType;                         ///< PDU_IT_RSC_STATUS
    UNUM32 NumEntries;                         ///< in: entries of pResourceStatusData
    PDU_RSC_STATUS_DATA* pResourceStatusData;  ///< owned by the application
} PDU_RSC_STATUS_ITEM;
PDU_CHECK_SIZE_(PDU_RSC_STATUS_ITEM, 16);
PDU_CHECK_FIELD_(PDU_RSC_STATUS_ITEM, ItemType, 0);
PDU_CHECK_FIELD_(PDU_RSC_STATUS_ITEM, NumEntries, 4);
PDU_CHECK_FIELD_(PDU_RSC_STATUS_ITEM, pResourceStatusData, 8);

/// One resource in conflict. Never returned here.
typedef struct PDU_RSC_CONFLICT_DATA_ {
    UNUM32 hMod;        ///< module handle
    UNUM32 ResourceId;  ///< conflicting resource
} PDU_RSC_CONFLICT_DATA;
PDU_CHECK_SIZE_(PDU_RSC_CONFLICT_DATA, 8);
PDU_CHECK_FIELD_(PDU_RSC_CONFLICT_DATA, hMod, 0);
PDU_CHECK_FIELD_(PDU_RSC_CONFLICT_DATA, ResourceId, 4);

/// Resources in conflict. Never returned here.
typedef struct PDU_RSC_CONFLICT_ITEM_ {
    T_PDU_IT ItemType;                        ///< PDU_IT_RSC_CONFLICT
    UNUM32 NumEntries;                        ///< entries of pRscConflictData
    PDU_RSC_CONFLICT_DATA* pRscConflictData;  ///< the resources
} PDU_RSC_CONFLICT_ITEM;
PDU_CHECK_SIZE_(PDU_RSC_CONFLICT_ITEM, 16);
PDU_CHECK_FIELD_(PDU_RSC_CONFLICT_ITEM, ItemType, 0);
PDU_CHECK_FIELD_(PDU_RSC_CONFLICT_ITEM, NumEntries, 4);
PDU_CHECK_FIELD_(PDU_RSC_CONFLICT_ITEM, pRscConflictData, 8);

// ---------------------------------------------------------------------------------------------
// Unique response tables
// ---------------------------------------------------------------------------------------------

/// One control unit that answers a link.
typedef struct PDU_ECU_UNIQUE_RESP_DATA_ {
    UNUM32 UniqueRespIdentifier;  ///< chosen by the application; PDU_ID_UNDEF in a new link's table
    UNUM32 NumParamItems;         ///< entries of pParams
    PDU_PARAM_ITEM* pParams;      ///< the ComParams of class PDU_PC_UNIQUE_ID, by value
} PDU_ECU_UNIQUE_RESP_DATA;
PDU_CHECK_SIZE_(PDU_ECU_UNIQUE_RESP_DATA, 16);
PDU_CHECK_FIELD_(PDU_ECU_UNIQUE_RESP_DATA, UniqueRespIdentifier, 0);
PDU_CHECK_FIELD_(PDU_ECU_UNIQUE_RESP_DATA, NumParamItems, 4);
PDU_CHECK_FIELD_(PDU_ECU_UNIQUE_RESP_DATA, pParams, 8);

/// The control units that answer a link. PDUGetUniqueRespIdTable returns a copy, which the
/// application passes to PDUDestroyItem; a table given to PDUSetUniqueRespIdTable stays the
/// application's.
typedef struct PDU_UNIQUE_RESP_ID_TABLE_ITEM_ {
    T_PDU_IT ItemType;                      ///< PDU_IT_UNIQUE_RESP_ID_TABLE
    UNUM32 NumEntries;                      ///< entries of pUniqueData
    PDU_ECU_UNIQUE_RESP_DATA* pUniqueData;  ///< one entry per control unit
} PDU_UNIQUE_RESP_ID_TABLE_ITEM;
PDU_CHECK_SIZE_(PDU_UNIQUE_RESP_ID_TABLE_ITEM, 16);
PDU_CHECK_FIELD_(PDU_UNIQUE_RESP_ID_TABLE_ITEM, ItemType, 0);
PDU_CHECK_FIELD_(PDU_UNIQUE_RESP_ID_TABLE_ITEM, NumEntries, 4);
PDU_CHECK_FIELD_(PDU_UNIQUE_RESP_ID_TABLE_ITEM, pUniqueData, 8);

// ---------------------------------------------------------------------------------------------
// Events
// ---------------------------------------------------------------------------------------------

/// One event: result, status, error or information. Returned by PDUGetEventItem; PDUDestroyItem
/// releases it with its data, except for information items.
typedef struct PDU_EVENT_ITEM_ {
    T_PDU_IT ItemType;  ///< PDU_IT_RESULT, PDU_IT_STATUS, PDU_IT_ERROR or PDU_IT_INFO
    UNUM32 hCop;        ///< ComPrimitive handle, or PDU_HANDLE_UNDEF
    void* pCoPTag;      ///< the tag given to PDUStartComPrimitive, unchanged; may be null
    UNUM32 Timestamp;   ///< microseconds; wraps after 71.6 minutes
    void* pData;        ///< PDU_RESULT_DATA, PDU_STATUS_DATA, PDU_ERROR_DATA or PDU_INFO_DATA
} PDU_EVENT_ITEM;
PDU_CHECK_SIZE_(PDU_EVENT_ITEM, 32);
PDU_CHECK_FIELD_(PDU_EVENT_ITEM, ItemType, 0);
PDU_CHECK_FIELD_(PDU_EVENT_ITEM, hCop, 4);
PDU_CHECK_FIELD_(PDU_EVENT_ITEM, pCoPTag, 8);
PDU_CHECK_FIELD_(PDU_EVENT_ITEM, Timestamp, 16);
PDU_CHECK_FIELD_(PDU_EVENT_ITEM, pData, 24);

/// Data of a status item: the new state of the ComPrimitive or link.
typedef T_PDU_STATUS PDU_STATUS_DATA;
PDU_CHECK_SIZE_(PDU_STATUS_DATA, 4);

/// Data of an information item.
typedef struct PDU_INFO_DATA_ {
    T_PDU_INFO InfoCode;   ///< PDU_INFO_...
    UNUM32 ExtraInfoData;  ///< 0
} PDU_INFO_DATA;
PDU_CHECK_SIZE_(PDU_INFO_DATA, 8);
PDU_CHECK_FIELD_(PDU_INFO_DATA, InfoCode, 0);
PDU_CHECK_FIELD_(PDU_INFO_DATA, ExtraInfoData, 4);

/// Data of an error item.
typedef struct PDU_ERROR_DATA_ {
    T_PDU_ERR_EVT ErrorCodeId;  ///< PDU_ERR_EVT_...
    UNUM32 ExtraErrorInfoId;    ///< error code of the module description file; 0: none
} PDU_ERROR_DATA;
PDU_CHECK_SIZE_(PDU_ERROR_DATA, 8);
PDU_CHECK_FIELD_(PDU_ERROR_DATA, ErrorCodeId, 0);
PDU_CHECK_FIELD_(PDU_ERROR_DATA, ExtraErrorInfoId, 4);

/// Flag bytes. See the flag bits above.
typedef struct PDU_FLAG_DATA_ {
    UNUM32 NumFlagBytes;  ///< normally 4; 0 is legal
    UNUM8* pFlagData;     ///< byte 0 first; may be null if the count is 0; owned like its record
} PDU_FLAG_DATA;
PDU_CHECK_SIZE_(PDU_FLAG_DATA, 16);
PDU_CHECK_FIELD_(PDU_FLAG_DATA, NumFlagBytes, 0);
PDU_CHECK_FIELD_(PDU_FLAG_DATA, pFlagData, 8);

/// Header and footer of a response. Never returned here.
typedef struct PDU_EXTRA_INFO_ {
    UNUM32 NumHeaderBytes;  ///< bytes at pHeaderBytes
    UNUM32 NumFooterBytes;  ///< bytes at pFooterBytes
    UNUM8* pHeaderBytes;    ///< null if the count is 0
    UNUM8* pFooterBytes;    ///< null if the count is 0
} PDU_EXTRA_INFO;
PDU_CHECK_SIZE_(PDU_EXTRA_INFO, 24);
PDU_CHECK_FIELD_(PDU_EXTRA_INFO, NumHeaderBytes, 0);
PDU_CHECK_FIELD_(PDU_EXTRA_INFO, NumFooterBytes, 4);
PDU_CHECK_FIELD_(PDU_EXTRA_INFO, pHeaderBytes, 8);
PDU_CHECK_FIELD_(PDU_EXTRA_INFO, pFooterBytes, 16);

/// Data of a result item: one response.
typedef struct PDU_RESULT_DATA_ {
    PDU_FLAG_DATA RxFlag;          ///< PDU_RX_FLAG...
    UNUM32 UniqueRespIdentifier;   ///< here: the position of the responding control unit in the
                                   ///< request; 0 for a request to a single control unit
    UNUM32 AcceptanceId;           ///< of the expected response that matched
    PDU_FLAG_DATA TimestampFlags;  ///< PDU_TIMESTAMP_FLAG...; here all 0, or without bytes
    UNUM32 TxMsgDoneTimestamp;     ///< microseconds
    UNUM32 StartMsgTimestamp;      ///< microseconds; 0 here
    PDU_EXTRA_INFO* pExtraInfo;    ///< null here
    UNUM32 NumDataBytes;           ///< bytes at pDataBytes
    UNUM8* pDataBytes;             ///< the response; on a raw link four identifier bytes come first
} PDU_RESULT_DATA;
PDU_CHECK_SIZE_(PDU_RESULT_DATA, 72);
PDU_CHECK_FIELD_(PDU_RESULT_DATA, RxFlag, 0);
PDU_CHECK_FIELD_(PDU_RESULT_DATA, UniqueRespIdentifier, 16);
PDU_CHECK_FIELD_(PDU_RESULT_DATA, AcceptanceId, 20);
PDU_CHECK_FIELD_(PDU_RESULT_DATA, TimestampFlags, 24);
PDU_CHECK_FIELD_(PDU_RESULT_DATA, TxMsgDoneTimestamp, 40);
PDU_CHECK_FIELD_(PDU_RESULT_DATA, StartMsgTimestamp, 44);
PDU_CHECK_FIELD_(PDU_RESULT_DATA, pExtraInfo, 48);
PDU_CHECK_FIELD_(PDU_RESULT_DATA, NumDataBytes, 56);
PDU_CHECK_FIELD_(PDU_RESULT_DATA, pDataBytes, 64);

// ---------------------------------------------------------------------------------------------
// ComPrimitives
// ---------------------------------------------------------------------------------------------

/// One expected response. In; the library copies it. A response that matches none is not delivered.
/// A response matches if, for every byte, (mask AND response) equals (pattern AND response). It may
/// be shorter or longer than the mask.
typedef struct PDU_EXP_RESP_DATA_ {
    UNUM32 ResponseType;         ///< 0 positive, 1 negative
    UNUM32 AcceptanceId;         ///< chosen by the application; comes back in the result
    UNUM32 NumMaskPatternBytes;  ///< bytes of mask and pattern; 0: any response, if type is 0
    UNUM8* pMaskData;            ///< owned by the application
    UNUM8* pPatternData;         ///< owned by the application
    UNUM32 NumUniqueRespIds;     ///< entries of pUniqueRespIds; 0: any control unit
    UNUM32* pUniqueRespIds;      ///< owned by the application
} PDU_EXP_RESP_DATA;
PDU_CHECK_SIZE_(PDU_EXP_RESP_DATA, 48);
PDU_CHECK_FIELD_(PDU_EXP_RESP_DATA, ResponseType, 0);
PDU_CHECK_FIELD_(PDU_EXP_RESP_DATA, AcceptanceId, 4);
PDU_CHECK_FIELD_(PDU_EXP_RESP_DATA, NumMaskPatternBytes, 8);
PDU_CHECK_FIELD_(PDU_EXP_RESP_DATA, pMaskData, 16);
PDU_CHECK_FIELD_(PDU_EXP_RESP_DATA, pPatternData, 24);
PDU_CHECK_FIELD_(PDU_EXP_RESP_DATA, NumUniqueRespIds, 32);
PDU_CHECK_FIELD_(PDU_EXP_RESP_DATA, pUniqueRespIds, 40);

/// How a ComPrimitive is executed. In; the library copies it, except for the bytes of the TxFlag,
/// which it reads during PDUStartComPrimitive only.
typedef struct PDU_COP_CTRL_DATA_ {
    UNUM32 Time;                          ///< milliseconds: cycle time, or the delay; ignored here
    SNUM32 NumSendCycles;                 ///< sends; -1 endless; see PDUStartComPrimitive
    SNUM32 NumReceiveCycles;              ///< receives; -1 endless, -2 all in the time
    UNUM32 TempParamUpdate;               ///< 0 active ComParams, 1 working set; ignored
    PDU_FLAG_DATA TxFlag;                 ///< PDU_TX_FLAG...
    UNUM32 NumPossibleExpectedResponses;  ///< entries of pExpectedResponseArray
    PDU_EXP_RESP_DATA* pExpectedResponseArray;  ///< owned by the application; first match wins
} PDU_COP_CTRL_DATA;
PDU_CHECK_SIZE_(PDU_COP_CTRL_DATA, 48);
PDU_CHECK_FIELD_(PDU_COP_CTRL_DATA, Time, 0);
PDU_CHECK_FIELD_(PDU_COP_CTRL_DATA, NumSendCycles, 4);
PDU_CHECK_FIELD_(PDU_COP_CTRL_DATA, NumReceiveCycles, 8);
PDU_CHECK_FIELD_(PDU_COP_CTRL_DATA, TempParamUpdate, 12);
PDU_CHECK_FIELD_(PDU_COP_CTRL_DATA, TxFlag, 16);
PDU_CHECK_FIELD_(PDU_COP_CTRL_DATA, NumPossibleExpectedResponses, 32);
PDU_CHECK_FIELD_(PDU_COP_CTRL_DATA, pExpectedResponseArray, 40);

// ---------------------------------------------------------------------------------------------
// Version
// ---------------------------------------------------------------------------------------------

/// Filled by PDUGetVersion; belongs to the application. A version has one number per byte, most
/// significant first (major, minor, revision, 0); so has a date (years since 1970, month, day, 0).
/// Only the characters of a text and its NUL are written, not the rest of its field.
typedef struct PDU_VERSION_DATA_ {
    UNUM32 MVCI_Part1StandardVersion;  ///< version of ISO 22900-1
    UNUM32 MVCI_Part2StandardVersion;  ///< version of ISO 22900-2
    UNUM32 HwSerialNumber;             ///< serial number; the same for every dongle here
    CHAR8 HwName[64];                  ///< name of the dongle
    UNUM32 HwVersion;                  ///< its version
    UNUM32 HwDate;                     ///< its date
    UNUM32 HwInterface;                ///< its interface type
    CHAR8 FwName[64];                  ///< name of its firmware
    UNUM32 FwVersion;                  ///< version of its firmware
    UNUM32 FwDate;                     ///< date of its firmware
    CHAR8 VendorName[64];              ///< maker
    CHAR8 PDUApiSwName[64];            ///< name of the library
    UNUM32 PDUApiSwVersion;            ///< version of the library
    UNUM32 PDUApiSwDate;               ///< date of the library
} PDU_VERSION_DATA;
PDU_CHECK_SIZE_(PDU_VERSION_DATA, 296);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, MVCI_Part1StandardVersion, 0);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, MVCI_Part2StandardVersion, 4);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, HwSerialNumber, 8);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, HwName, 12);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, HwVersion, 76);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, HwDate, 80);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, HwInterface, 84);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, FwName, 88);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, FwVersion, 152);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, FwDate, 156);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, VendorName, 160);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, PDUApiSwName, 224);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, PDUApiSwVersion, 288);
PDU_CHECK_FIELD_(PDU_VERSION_DATA, PDUApiSwDate, 292);

// ---------------------------------------------------------------------------------------------
// Event callback
// ---------------------------------------------------------------------------------------------

/// Called after an item is put into an event queue, on the thread that produced the item: a thread
/// of the library, or one of the application inside an API call. No lock of the library is held, so
/// every function of the API may be called. Callbacks of several links, or of one raw link, may run
/// at the same time.
/// eventType: PDU_EVT_DATA_AVAILABLE. hMod, hCLL: whose queue, or PDU_HANDLE_UNDEF. pCllTag: the
/// tag given to PDUCreateComLogicalLink; pAPITag: the tag given to PDUConstruct; both unchanged.
typedef void(PDU_CALL* CALLBACKFNC)(T_PDU_EVT_DATA eventType, UNUM32 hMod, UNUM32 hCLL,
                                    void* pCllTag, void* pAPITag);

#ifdef __cplusplus
}  // extern "C"
#endif

#undef PDU_CHECK_FIELD_
#undef PDU_CHECK_SIZE_
#undef PDU_STATIC_ASSERT_

#endif  // DPDU_TYPES_H
