// The 29 functions of the D-PDU API (ISO 22900-2) as this library provides them.
//
// In short: PDUConstruct; PDUGetModuleIds and PDUModuleConnect for the dongle;
// PDUCreateComLogicalLink and PDUConnect for the vehicle; PDUSetComParam and
// PDUSetUniqueRespIdTable for identifiers and timing; PDUStartComPrimitive for a request;
// PDUGetEventItem and PDUDestroyItem until it is finished; PDUDestroyComLogicalLink,
// PDUModuleDisconnect, PDUDestruct.
//
// For every function:
// - It returns PDU_STATUS_NOERROR or one of the errors named with it. Nothing is thrown.
// - It may be called from any thread and inside the event callback, unless said otherwise.
//   PDUConstruct and PDUDestruct must not run at the same time as each other or as any other call.
// - An item returned through a pointer to a pointer belongs to the application until it hands it
//   back with PDUDestroyItem. Everything passed in stays the application's and is copied where it
//   is needed after the return, except where said otherwise.
// - hMod is a module handle from PDUGetModuleIds, hCLL a link handle from PDUCreateComLogicalLink,
//   hCoP a ComPrimitive handle from PDUStartComPrimitive; PDU_HANDLE_UNDEF stands for none.
// - Pointers to results must not be null, except where said otherwise.
//
// The function pointer types at the end (PDUConstruct_Fn and so on) are for programs that load the
// library at run time; the exported names are undecorated.

#ifndef DPDU_API_H
#define DPDU_API_H

#include "dpdu_types.h"

// Gives a function default visibility in an ELF library. Windows exports come from a definition
// file, so there is nothing to say here.
#ifndef PDU_API
#if defined(__ELF__) && defined(__GNUC__)
#define PDU_API __attribute__((visibility("default")))
#else
#define PDU_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

// ---------------------------------------------------------------------------------------------
// Life cycle
// ---------------------------------------------------------------------------------------------

/// Starts the library: reads the configuration, opens the debug log and the trace, and starts the
/// transports that the configuration enables. Every ComParam value starts at 0.
///
/// OptionStr is only logged; it may be null. pAPITag is handed to every event callback unchanged
/// and never read through; it may be null.
///
/// Errors: PDU_ERR_SHARING_VIOLATION when already constructed (nothing changes),
/// PDU_ERR_FCT_FAILED when memory for the ComParams runs out.
PDU_API T_PDU_ERROR PDU_CALL PDUConstruct(CHAR8* OptionStr, void* pAPITag);

/// Stops the library: ends every link (waiting at most two seconds for each), the transports and
/// the trace, and forgets every module, ComParam value and queued event. All handles become
/// invalid; items not yet handed back with PDUDestroyItem can no longer be. The callbacks of the
/// system and of the modules stay registered for a following PDUConstruct.
///
/// Not to be called inside the event callback: it waits for the thread that runs the callback.
///
/// Errors: PDU_ERR_PDUAPI_NOT_CONSTRUCTED.
PDU_API T_PDU_ERROR PDU_CALL PDUDestruct(void);

// ---------------------------------------------------------------------------------------------
// Commands and information
// ---------------------------------------------------------------------------------------------

/// Executes the command with the id IoCtlCommandId, which PDUGetObjectId gives for its name. The
/// handles are not examined, and no command reaches the dongle.
///
/// PDU_IOCTL_RESET, PDU_IOCTL_SET_BUFFER_SIZE, PDU_IOCTL_START_MSG_FILTER and
/// PDU_IOCTL_CLEAR_MSG_FILTER ignore their input, have no effect and leave *pOutputData alone.
/// PDU_IOCTL_READ_VBATT returns 13800 (millivolts) and PDU_IOCTL_READ_IGNITION_SENSE_STATE 1, each
/// as a PDU_IT_IO_UNUM32 item. PDU_IOCTL_VEHICLE_ID_REQUEST (input PDU_IT_IO_VEHICLE_ID_REQUEST)
/// and PDU_IOCTL_SET_ETH_SWITCH_STATE (input PDU_IT_IO_ETH_SWITCH_STATE) set *pOutputData to null.
/// PDU_IOCTL_GET_ENTITY_STATUS returns a PDU_IT_IO_ENTITY_STATUS item and
/// PDU_IOCTL_GET_DIAGNOSTIC_POWER_MODE the value 1; both take a PDU_IT_IO_ENTITY_ADDRESS input.
///
/// pInputData may be null where the input is ignored. Set *pOutputData to null before the call and
/// hand the item back with PDUDestroyItem if it is not null afterwards.
///
/// Errors: PDU_ERR_ID_NOT_SUPPORTED for every other id, PDU_ERR_INVALID_PARAMETERS for a missing
/// input or one of the wrong type.
PDU_API T_PDU_ERROR PDU_CALL PDUIoCtl(UNUM32 hMod, UNUM32 hCLL, UNUM32 IoCtlCommandId,
                                      PDU_DATA_ITEM* pInputData, PDU_DATA_ITEM** pOutputData);

/// Fills pVersionData, which belongs to the application, with the versions of the interface, the
/// dongle and the library. The values are constants, the same for every module.
///
/// Errors: PDU_ERR_INVALID_HANDLE for an unknown module.
PDU_API T_PDU_ERROR PDU_CALL PDUGetVersion(UNUM32 hMod, PDU_VERSION_DATA* pVersionData);

/// Tells the state of a ComPrimitive, a link or a module: of hCoP unless it is PDU_HANDLE_UNDEF,
/// else of the link if hMod and hCLL name one, else of the module. A ComPrimitive is found whatever
/// hMod and hCLL say; it is known from its start until shortly after its final state.
///
/// *pTimestamp (microseconds) and *pExtraInfo (0) are written in every case; both pointers may be
/// null.
///
/// A successful call for a ComPrimitive keeps the calling thread the owner of the module table's
/// lock until PDUDestruct, so that calls of other threads which need it wait: take ComPrimitive
/// states from the status items instead, or call the API from one thread only.
///
/// Errors: PDU_ERR_INVALID_HANDLE.
PDU_API T_PDU_ERROR PDU_CALL PDUGetStatus(UNUM32 hMod, UNUM32 hCLL, UNUM32 hCoP,
                                          T_PDU_STATUS* pStatusCode, UNUM32* pTimestamp,
                                          UNUM32* pExtraInfo);

/// Does nothing and succeeds: the library keeps no last error, and no output is written. Errors of
/// ComPrimitives arrive as error items.
///
/// Errors: none.
PDU_API T_PDU_ERROR PDU_CALL PDUGetLastError(UNUM32 hMod, UNUM32 hCLL, T_PDU_ERR_EVT* pErrorCode,
                                             UNUM32* phCoP, UNUM32* pTimestamp,
                                             UNUM32* pExtraErrorInfo);

/// Does nothing and succeeds; pResourceStatus, which belongs to the application, stays as it is.
///
/// Errors: none.
PDU_API T_PDU_ERROR PDU_CALL PDUGetResourceStatus(PDU_RSC_STATUS_ITEM* pResourceStatus);

// ---------------------------------------------------------------------------------------------
// Logical links
// ---------------------------------------------------------------------------------------------

/// Creates a logical link on a module, offline, with a worker thread of its own. Its handle is
/// stored in *phCLL; handles are not reused.
///
/// pRscData names the bus type and the protocol (CAN or DoIP); its pins are ignored. With null
/// pRscData the link exists, but its protocol is unknown: resourceId is only logged. pCllTag is
/// handed to every event callback of the link unchanged; it may be null. pCllCreateFlag may be null
/// or of 0 bytes; PDU_CREATE_FLAG0_RAW_MODE makes a link on which the application sees CAN frames.
///
/// The link starts with a unique response table of one entry, a copy of the ComParam values of
/// class PDU_PC_UNIQUE_ID at this moment: set CP_CanPhysReqId and CP_CanRespUSDTId before creating
/// the link, or give the link a table afterwards.
///
/// Errors: PDU_ERR_INVALID_HANDLE for an unknown module.
PDU_API T_PDU_ERROR PDU_CALL PDUCreateComLogicalLink(UNUM32 hMod, PDU_RSC_DATA* pRscData,
                                                     UNUM32 resourceId, void* pCllTag,
                                                     UNUM32* phCLL, PDU_FLAG_DATA* pCllCreateFlag);

/// Ends a link. Its handle is invalid at once; the worker ends soon after, and ComPrimitives still
/// queued are dropped without an item. Fetch the events that matter before.
///
/// Errors: PDU_ERR_INVALID_HANDLE, also for the second call.
PDU_API T_PDU_ERROR PDU_CALL PDUDestroyComLogicalLink(UNUM32 hMod, UNUM32 hCLL);

/// Takes a link online and reports PDU_CLLST_ONLINE in a status item. Nothing is sent. A link whose
/// communication was started goes back to online.
///
/// Errors: PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_CONNECTED when the link is online.
PDU_API T_PDU_ERROR PDU_CALL PDUConnect(UNUM32 hMod, UNUM32 hCLL);

/// Takes a link offline and reports PDU_CLLST_OFFLINE in a status item. ComPrimitives already
/// queued are still executed.
///
/// Errors: PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_NOT_CONNECTED when the link is offline.
PDU_API T_PDU_ERROR PDU_CALL PDUDisconnect(UNUM32 hMod, UNUM32 hCLL);

/// Does nothing and succeeds: no resource is ever locked. LockMask holds PDU_LOCK_... bits.
///
/// Errors: none.
PDU_API T_PDU_ERROR PDU_CALL PDULockResource(UNUM32 hMod, UNUM32 hCLL, UNUM32 LockMask);

/// Does nothing and succeeds. LockMask holds PDU_LOCK_... bits.
///
/// Errors: none.
PDU_API T_PDU_ERROR PDU_CALL PDUUnlockResource(UNUM32 hMod, UNUM32 hCLL, UNUM32 LockMask);

// ---------------------------------------------------------------------------------------------
// ComParams
// ---------------------------------------------------------------------------------------------

/// Stores in *pParamItem a pointer into the library's ComParam table, not a copy: the item belongs
/// to the library, changes with the next PDUSetComParam and is valid until PDUDestruct. Handing it
/// to PDUDestroyItem is allowed and does nothing. There is one table for the whole process; the
/// handles are not examined.
///
/// Errors: PDU_ERR_COMPARAM_NOT_SUPPORTED for an unknown id.
PDU_API T_PDU_ERROR PDU_CALL PDUGetComParam(UNUM32 hMod, UNUM32 hCLL, UNUM32 ParamId,
                                            PDU_PARAM_ITEM** pParamItem);

/// Copies a value into the ComParam table, where it takes effect at once for every link and for
/// every ComPrimitive executed from now on; the handles are not examined. The ComParam's own type
/// decides how pComParamData is read, not the type in the item. The item may be the very one that
/// PDUGetComParam returned. Lengths in field records are trusted as given.
///
/// CP_CanPhysReqId and CP_CanRespUSDTId reach an existing link only through its unique response
/// table. CP_P2Max is in microseconds and is divided by 2000 to get the time-out in milliseconds.
///
/// The table has no lock: two threads that set the same field ComParam must take turns.
///
/// Errors: PDU_ERR_INVALID_PARAMETERS for an unknown id, PDU_ERR_FCT_FAILED for a struct type other
/// than the ComParam's own or when memory runs out.
PDU_API T_PDU_ERROR PDU_CALL PDUSetComParam(UNUM32 hMod, UNUM32 hCLL, PDU_PARAM_ITEM* pParamItem);

// ---------------------------------------------------------------------------------------------
// ComPrimitives
// ---------------------------------------------------------------------------------------------

/// Queues a ComPrimitive on a link that is not offline and stores its handle in *phCoP. A link
/// executes its ComPrimitives one after another; state changes, results and errors arrive as event
/// items, the last of them with PDU_COPST_FINISHED or PDU_COPST_CANCELLED.
///
/// CoPType is one of PDU_COPT_.... PDU_COPT_SENDRECV sends the CoPDataSize bytes of pCoPData. With
/// a unique response table of one entry the request goes to that entry's control unit, and up to
/// ten times until a response matches one of the expected responses. With two entries or more it
/// goes out once on the functional identifier CP_CanFuncReqId, and every entry's answer that
/// matches is delivered. An unmatched response gives an error item PDU_ERR_EVT_RX_TIMEOUT, none at
/// all PDU_ERR_EVT_TX_ERROR. PDU_COPT_STARTCOMM also starts tester present with
/// CP_TesterPresentTime and CP_TesterPresentMessage, PDU_COPT_STOPCOMM ends it.
/// PDU_COPT_UPDATEPARAM and PDU_COPT_RESTORE_PARAM only report that they are finished. Other types
/// are queued and have no effect and no item. On a raw link PDU_COPT_STARTCOMM sends one CAN frame
/// (four identifier bytes, then the data) and PDU_COPT_SENDRECV receives frames until it is
/// cancelled or the link ends.
///
/// pCoPData and pCopCtrlData are copied, except for the TxFlag's bytes; both may be null when they
/// are not needed, but a request without expected responses gets none. pCoPTag comes back in every
/// item unchanged; it may be null.
///
/// Errors: PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_NOT_CONNECTED when the link is offline.
PDU_API T_PDU_ERROR PDU_CALL PDUStartComPrimitive(UNUM32 hMod, UNUM32 hCLL, T_PDU_COPT CoPType,
                                                  UNUM32 CoPDataSize, UNUM8* pCoPData,
                                                  PDU_COP_CTRL_DATA* pCopCtrlData, void* pCoPTag,
                                                  UNUM32* phCoP);

/// Asks a ComPrimitive to end. The answer comes as a status item PDU_COPST_CANCELLED; a request to
/// a single control unit that is already under way is completed first. Cancelling one that is
/// finished, but not yet forgotten, succeeds and does nothing.
///
/// Errors: PDU_ERR_INVALID_HANDLE for an unknown link or ComPrimitive.
PDU_API T_PDU_ERROR PDU_CALL PDUCancelComPrimitive(UNUM32 hMod, UNUM32 hCLL, UNUM32 hCoP);

// ---------------------------------------------------------------------------------------------
// Events and items
// ---------------------------------------------------------------------------------------------

/// Takes the oldest item out of an event queue without waiting and stores it in *pEventItem: the
/// system's queue when hMod is PDU_HANDLE_UNDEF, the link's when hMod and hCLL name a link, else
/// the module's. The item then belongs to the application; hand it back with PDUDestroyItem.
///
/// Errors: PDU_ERR_EVENT_QUEUE_EMPTY (*pEventItem is null), PDU_ERR_INVALID_PARAMETERS for a null
/// pEventItem.
PDU_API T_PDU_ERROR PDU_CALL PDUGetEventItem(UNUM32 hMod, UNUM32 hCLL, PDU_EVENT_ITEM** pEventItem);

/// Releases an item that the library returned, with everything it points to. Null, ComParam items
/// and information items are accepted; nothing is released then.
///
/// Errors: PDU_ERR_PDUAPI_NOT_CONSTRUCTED (the item is not released).
PDU_API T_PDU_ERROR PDU_CALL PDUDestroyItem(PDU_ITEM* pItem);

/// Registers the callback for events of the system (hMod PDU_HANDLE_UNDEF), of all modules (hCLL
/// PDU_HANDLE_UNDEF; there is one such callback, whatever hMod says) or of a link. Null removes it.
/// An event calls the link's callback, else the modules', else the system's, after its item was
/// queued; see CALLBACKFNC.
///
/// Errors: PDU_ERR_INVALID_HANDLE for an unknown link.
PDU_API T_PDU_ERROR PDU_CALL PDURegisterEventCallback(UNUM32 hMod, UNUM32 hCLL,
                                                      CALLBACKFNC EventCallbackFunction);

// ---------------------------------------------------------------------------------------------
// Objects, modules and resources
// ---------------------------------------------------------------------------------------------

/// Looks up the id of an object by its exact name, case included. The ids are the library's own:
/// always ask for them. Known are the protocols ISO_15765_3_on_ISO_15765_2 and ISO_11898_RAW, the
/// bus type ISO_11898_2_DWCAN, the pin types HI and LOW (HI has the id 0), the resource
/// ISO_UDS_on_OBD, 25 commands of PDUIoCtl and 228 ComParams. Works before PDUConstruct too.
///
/// Errors: PDU_ERR_INVALID_PARAMETERS for an unknown name or object type (*pPduObjectId is 0).
PDU_API T_PDU_ERROR PDU_CALL PDUGetObjectId(T_PDU_OBJT pduObjectType, CHAR8* pShortname,
                                            UNUM32* pPduObjectId);

/// Looks for dongles on every enabled transport and returns the list of all known modules. Takes as
/// long as the slowest transport: serial 0.2 s, cloud 0.5 s, Bluetooth LE 2 s. A dongle keeps its
/// handle until PDUDestruct. One that has vanished stays in the list; PDUGetStatus then tells
/// PDU_MODST_NOT_AVAIL, even after it has come back, until a new PDUConstruct.
///
/// Errors: PDU_ERR_PDUAPI_NOT_CONSTRUCTED.
PDU_API T_PDU_ERROR PDU_CALL PDUGetModuleIds(PDU_MODULE_ITEM** pModuleIdList);

/// Returns the resources of a module that match the bus type and the protocol in pResourceIdData
/// (both 0: all resources; pins are ignored), always as a list with one module entry. The handle is
/// not checked.
///
/// Errors: none; a list without ids when nothing matches.
PDU_API T_PDU_ERROR PDU_CALL PDUGetResourceIds(UNUM32 hMod, PDU_RSC_DATA* pResourceIdData,
                                               PDU_RSC_ID_ITEM** pResourceIdList);

/// Does nothing and succeeds; *pOutputConflictList stays as it is, so set it to null before.
///
/// Errors: none.
PDU_API T_PDU_ERROR PDU_CALL
PDUGetConflictingResources(UNUM32 resourceId, PDU_MODULE_ITEM* pInputModuleList,
                           PDU_RSC_CONFLICT_ITEM** pOutputConflictList);

/// Returns a copy of the link's unique response table.
///
/// Errors: PDU_ERR_INVALID_HANDLE.
PDU_API T_PDU_ERROR PDU_CALL PDUGetUniqueRespIdTable(
    UNUM32 hMod, UNUM32 hCLL, PDU_UNIQUE_RESP_ID_TABLE_ITEM** pUniqueRespIdTable);

/// Gives the link a new unique response table, used from the next request on. The table is copied
/// (struct and long fields without their data) and stays the application's; it may be the one that
/// PDUGetUniqueRespIdTable returned. One entry: requests go to that control unit. Several: requests
/// go out functionally, and the entries' CP_CanRespUSDTId tell the answers apart; an entry that
/// repeats one is left out, and results carry the position among those that remain. An empty table
/// is accepted.
///
/// Errors: PDU_ERR_INVALID_HANDLE.
PDU_API T_PDU_ERROR PDU_CALL PDUSetUniqueRespIdTable(
    UNUM32 hMod, UNUM32 hCLL, PDU_UNIQUE_RESP_ID_TABLE_ITEM* pUniqueRespIdTable);

/// Marks a module as connected (PDU_MODST_READY); with a dongle in the cloud, also directs the
/// connection to it.
///
/// Errors: PDU_ERR_INVALID_HANDLE, also for PDU_HANDLE_UNDEF.
PDU_API T_PDU_ERROR PDU_CALL PDUModuleConnect(UNUM32 hMod);

/// Marks a module as present, but not connected (PDU_MODST_AVAIL). Its links live on.
///
/// Errors: PDU_ERR_INVALID_HANDLE, also for PDU_HANDLE_UNDEF.
PDU_API T_PDU_ERROR PDU_CALL PDUModuleDisconnect(UNUM32 hMod);

/// Stores the time on the clock of the event items, in microseconds with the resolution of a
/// millisecond; it wraps after 71.6 minutes. pTimestamp may be null.
///
/// Errors: PDU_ERR_INVALID_HANDLE for an unknown module.
PDU_API T_PDU_ERROR PDU_CALL PDUGetTimestamp(UNUM32 hMod, UNUM32* pTimestamp);

// ---------------------------------------------------------------------------------------------
// Function pointers, for loading the library at run time
// ---------------------------------------------------------------------------------------------

typedef T_PDU_ERROR(PDU_CALL* PDUConstruct_Fn)(CHAR8* OptionStr, void* pAPITag);
typedef T_PDU_ERROR(PDU_CALL* PDUDestruct_Fn)(void);
typedef T_PDU_ERROR(PDU_CALL* PDUIoCtl_Fn)(UNUM32 hMod, UNUM32 hCLL, UNUM32 IoCtlCommandId,
                                           PDU_DATA_ITEM* pInputData, PDU_DATA_ITEM** pOutputData);
typedef T_PDU_ERROR(PDU_CALL* PDUGetVersion_Fn)(UNUM32 hMod, PDU_VERSION_DATA* pVersionData);
typedef T_PDU_ERROR(PDU_CALL* PDUGetStatus_Fn)(UNUM32 hMod, UNUM32 hCLL, UNUM32 hCoP,
                                               T_PDU_STATUS* pStatusCode, UNUM32* pTimestamp,
                                               UNUM32* pExtraInfo);
typedef T_PDU_ERROR(PDU_CALL* PDUGetLastError_Fn)(UNUM32 hMod, UNUM32 hCLL,
                                                  T_PDU_ERR_EVT* pErrorCode, UNUM32* phCoP,
                                                  UNUM32* pTimestamp, UNUM32* pExtraErrorInfo);
typedef T_PDU_ERROR(PDU_CALL* PDUGetResourceStatus_Fn)(PDU_RSC_STATUS_ITEM* pResourceStatus);
typedef T_PDU_ERROR(PDU_CALL* PDUCreateComLogicalLink_Fn)(UNUM32 hMod, PDU_RSC_DATA* pRscData,
                                                          UNUM32 resourceId, void* pCllTag,
                                                          UNUM32* phCLL,
                                                          PDU_FLAG_DATA* pCllCreateFlag);
typedef T_PDU_ERROR(PDU_CALL* PDUDestroyComLogicalLink_Fn)(UNUM32 hMod, UNUM32 hCLL);
typedef T_PDU_ERROR(PDU_CALL* PDUConnect_Fn)(UNUM32 hMod, UNUM32 hCLL);
typedef T_PDU_ERROR(PDU_CALL* PDUDisconnect_Fn)(UNUM32 hMod, UNUM32 hCLL);
typedef T_PDU_ERROR(PDU_CALL* PDULockResource_Fn)(UNUM32 hMod, UNUM32 hCLL, UNUM32 LockMask);
typedef T_PDU_ERROR(PDU_CALL* PDUUnlockResource_Fn)(UNUM32 hMod, UNUM32 hCLL, UNUM32 LockMask);
typedef T_PDU_ERROR(PDU_CALL* PDUGetComParam_Fn)(UNUM32 hMod, UNUM32 hCLL, UNUM32 ParamId,
                                                 PDU_PARAM_ITEM** pParamItem);
typedef T_PDU_ERROR(PDU_CALL* PDUSetComParam_Fn)(UNUM32 hMod, UNUM32 hCLL,
                                                 PDU_PARAM_ITEM* pParamItem);
typedef T_PDU_ERROR(PDU_CALL* PDUStartComPrimitive_Fn)(UNUM32 hMod, UNUM32 hCLL, T_PDU_COPT CoPType,
                                                       UNUM32 CoPDataSize, UNUM8* pCoPData,
                                                       PDU_COP_CTRL_DATA* pCopCtrlData,
                                                       void* pCoPTag, UNUM32* phCoP);
typedef T_PDU_ERROR(PDU_CALL* PDUCancelComPrimitive_Fn)(UNUM32 hMod, UNUM32 hCLL, UNUM32 hCoP);
typedef T_PDU_ERROR(PDU_CALL* PDUGetEventItem_Fn)(UNUM32 hMod, UNUM32 hCLL,
                                                  PDU_EVENT_ITEM** pEventItem);
typedef T_PDU_ERROR(PDU_CALL* PDUDestroyItem_Fn)(PDU_ITEM* pItem);
typedef T_PDU_ERROR(PDU_CALL* PDURegisterEventCallback_Fn)(UNUM32 hMod, UNUM32 hCLL,
                                                           CALLBACKFNC EventCallbackFunction);
typedef T_PDU_ERROR(PDU_CALL* PDUGetObjectId_Fn)(T_PDU_OBJT pduObjectType, CHAR8* pShortname,
                                                 UNUM32* pPduObjectId);
typedef T_PDU_ERROR(PDU_CALL* PDUGetModuleIds_Fn)(PDU_MODULE_ITEM** pModuleIdList);
typedef T_PDU_ERROR(PDU_CALL* PDUGetResourceIds_Fn)(UNUM32 hMod, PDU_RSC_DATA* pResourceIdData,
                                                    PDU_RSC_ID_ITEM** pResourceIdList);
typedef T_PDU_ERROR(PDU_CALL* PDUGetConflictingResources_Fn)(
    UNUM32 resourceId, PDU_MODULE_ITEM* pInputModuleList,
    PDU_RSC_CONFLICT_ITEM** pOutputConflictList);
typedef T_PDU_ERROR(PDU_CALL* PDUGetUniqueRespIdTable_Fn)(
    UNUM32 hMod, UNUM32 hCLL, PDU_UNIQUE_RESP_ID_TABLE_ITEM** pUniqueRespIdTable);
typedef T_PDU_ERROR(PDU_CALL* PDUSetUniqueRespIdTable_Fn)(
    UNUM32 hMod, UNUM32 hCLL, PDU_UNIQUE_RESP_ID_TABLE_ITEM* pUniqueRespIdTable);
typedef T_PDU_ERROR(PDU_CALL* PDUModuleConnect_Fn)(UNUM32 hMod);
typedef T_PDU_ERROR(PDU_CALL* PDUModuleDisconnect_Fn)(UNUM32 hMod);
typedef T_PDU_ERROR(PDU_CALL* PDUGetTimestamp_Fn)(UNUM32 hMod, UNUM32* pTimestamp);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // DPDU_API_H
