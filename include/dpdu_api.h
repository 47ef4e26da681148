// The 29 functions of the D-PDU API (ISO 22900-2) as this library provides them.
//
// In short: PDUConstruct; PDUGetModuleIds and PDUModuleConnect for the dongle;
// PDUCreateComLogicalLink and PDUConnect for the vehicle; PDUSetComParam and
// PDUSetUniqueRespIdTable for identifiers and timing; PDUStartComPrimitive for a request;
// PDUGetEventItem and PDUDestroyItem until it is finished; PDUDestroyComLogicalLink,
// PDUModuleDisconnect, PDUDestruct.
//
// For every function:
// - It returns PDU_STATUS_NOERROR or one of the errors listed with it. Nothing is thrown.
// - It may be called on any thread and inside the event callback. The application should not let
//   PDUConstruct or PDUDestruct run at the same time as other calls.
// - An item returned through a pointer to a pointer belongs to the application until it is passed
//   to PDUDestroyItem. Everything passed in stays the application's; what the library needs after
//   the return is copied, unless stated otherwise.
// - hMod is a module handle from PDUGetModuleIds, hCLL a link handle from PDUCreateComLogicalLink,
//   hCoP a ComPrimitive handle from PDUStartComPrimitive; PDU_HANDLE_UNDEF means none.
// - Pointers to results must not be null, unless stated otherwise.
// - When memory runs out, "Errors" says what is returned; where it is not mentioned, the result is
//   the same. An event item that cannot be made is missing, and the callback is still called.
//
// The function pointer types at the end (PDUConstruct_Fn and so on) are for programs that load the
// library at run time; the exported names are undecorated.

#ifndef DPDU_API_H
#define DPDU_API_H

#include "dpdu_types.h"

// Gives a function default visibility in an ELF library. On Windows a definition file lists the
// exports.
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
/// OptionStr is only logged; it may be null. pAPITag is passed to every event callback unchanged
/// and never dereferenced; it may be null.
///
/// Errors: PDU_ERR_SHARING_VIOLATION if the library is already constructed, or if a construct or
/// destruct is under way (nothing changes); PDU_ERR_FCT_FAILED if memory for the ComParams runs
/// out.
PDU_API T_PDU_ERROR PDU_CALL PDUConstruct(CHAR8* OptionStr, void* pAPITag);

/// Stops the library: ends every link (waiting at most two seconds for each), the transports and
/// the trace, and discards every module, ComParam value and queued event. All handles become
/// invalid, and items not yet passed to PDUDestroyItem can no longer be released. The callbacks of
/// the system and of the modules stay registered for the next PDUConstruct.
///
/// It waits for callbacks on other threads to return. Threads of a link whose callback takes longer
/// than those two seconds are terminated on Windows; on Linux, and where that would leave a lock of
/// the process owned for ever, they are left to themselves, and do nothing more when the callback
/// returns. Links that were destroyed before are not waited for.
/// Called inside a callback, it does not wait for that callback. Calls of other threads that are
/// still inside the library get up to five seconds to end. The library may be unloaded afterwards,
/// by any thread and in any case: it stays in memory while a thread of it runs.
///
/// Errors: PDU_ERR_PDUAPI_NOT_CONSTRUCTED.
PDU_API T_PDU_ERROR PDU_CALL PDUDestruct(void);

// ---------------------------------------------------------------------------------------------
// Commands and information
// ---------------------------------------------------------------------------------------------

/// Executes the command with the id IoCtlCommandId, which PDUGetObjectId returns for its name. The
/// handles are not checked, and no command reaches the dongle.
///
/// PDU_IOCTL_RESET, PDU_IOCTL_SET_BUFFER_SIZE, PDU_IOCTL_START_MSG_FILTER and
/// PDU_IOCTL_CLEAR_MSG_FILTER ignore their input, have no effect and leave *pOutputData alone.
/// PDU_IOCTL_READ_VBATT returns 13800 (millivolts) and PDU_IOCTL_READ_IGNITION_SENSE_STATE 1, each
/// as a PDU_IT_IO_UNUM32 item. PDU_IOCTL_VEHICLE_ID_REQUEST (input PDU_IT_IO_VEHICLE_ID_REQUEST)
/// and PDU_IOCTL_SET_ETH_SWITCH_STATE (input PDU_IT_IO_ETH_SWITCH_STATE) set *pOutputData to null.
/// PDU_IOCTL_GET_ENTITY_STATUS returns a PDU_IT_IO_ENTITY_STATUS item and
/// PDU_IOCTL_GET_DIAGNOSTIC_POWER_MODE the value 1; both take a PDU_IT_IO_ENTITY_ADDRESS input.
///
/// pInputData may be null where the input is ignored; pOutputData may be null. Set *pOutputData to
/// null before the call, and pass the item to PDUDestroyItem if it is not null afterwards.
///
/// Errors: PDU_ERR_ID_NOT_SUPPORTED for every other id, PDU_ERR_INVALID_PARAMETERS for a missing
/// input or one of the wrong type. If memory runs out, PDU_IOCTL_READ_VBATT and
/// PDU_IOCTL_READ_IGNITION_SENSE_STATE print "Allocation (4096) failed - BUG!" and never return;
/// the other commands succeed with null.
PDU_API T_PDU_ERROR PDU_CALL PDUIoCtl(UNUM32 hMod, UNUM32 hCLL, UNUM32 IoCtlCommandId,
                                      PDU_DATA_ITEM* pInputData, PDU_DATA_ITEM** pOutputData);

/// Fills pVersionData, which belongs to the application, with the versions of the interface, the
/// dongle and the library. The values are constants, the same for every module.
///
/// Errors: PDU_ERR_INVALID_HANDLE for an unknown module.
PDU_API T_PDU_ERROR PDU_CALL PDUGetVersion(UNUM32 hMod, PDU_VERSION_DATA* pVersionData);

/// Returns the state of a ComPrimitive, a link or a module: of hCoP unless it is PDU_HANDLE_UNDEF,
/// else of the link if hMod and hCLL name one, else of the module. A ComPrimitive is found whatever
/// hMod and hCLL are; it is known from its start until shortly after its final state.
///
/// *pTimestamp (microseconds) and *pExtraInfo (0) are always written. All three pointers may be
/// null.
///
/// A successful call for a ComPrimitive leaves the calling thread in possession of the module
/// table's lock until it calls PDUDestruct. Calls of other threads that need this lock then wait.
/// Take the states of ComPrimitives from status items instead, or call the API on one thread only.
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

/// Does nothing and succeeds. pResourceStatus belongs to the application and is not written.
///
/// Errors: none.
PDU_API T_PDU_ERROR PDU_CALL PDUGetResourceStatus(PDU_RSC_STATUS_ITEM* pResourceStatus);

// ---------------------------------------------------------------------------------------------
// Logical links
// ---------------------------------------------------------------------------------------------

/// Creates a logical link on a module, in state PDU_CLLST_OFFLINE, with its own worker thread, and
/// stores its handle in *phCLL (which may be null). Handles are never reused.
///
/// pRscData names the bus type and the protocol (CAN or DoIP); its pins are ignored. If it is null,
/// the protocol of the link is unknown. resourceId is only logged. pCllTag is passed to every event
/// callback of the link unchanged; it may be null. pCllCreateFlag may be null or have 0 bytes;
/// PDU_CREATE_FLAG0_RAW_MODE creates a raw link, on which the application sees CAN frames.
///
/// The link starts with a unique response table of one entry, a copy of the ComParam values of
/// class PDU_PC_UNIQUE_ID at this moment. Set CP_CanPhysReqId and CP_CanRespUSDTId before creating
/// the link, or give the link a table afterwards.
///
/// Errors: PDU_ERR_INVALID_HANDLE for an unknown module, PDU_ERR_FCT_FAILED if memory runs out or
/// the system refuses a thread (*phCLL is not written). If memory runs out for the table alone, the
/// call succeeds and the link has none.
PDU_API T_PDU_ERROR PDU_CALL PDUCreateComLogicalLink(UNUM32 hMod, PDU_RSC_DATA* pRscData,
                                                     UNUM32 resourceId, void* pCllTag,
                                                     UNUM32* phCLL, PDU_FLAG_DATA* pCllCreateFlag);

/// Ends a link. Its handle becomes invalid at once, and with it the events that have not been
/// fetched. The worker ends soon afterwards; ComPrimitives that are still queued are dropped
/// without an item.
///
/// Errors: PDU_ERR_INVALID_HANDLE, also for a second call.
PDU_API T_PDU_ERROR PDU_CALL PDUDestroyComLogicalLink(UNUM32 hMod, UNUM32 hCLL);

/// Takes a link online and reports PDU_CLLST_ONLINE in a status item. Nothing is sent. A link in
/// state PDU_CLLST_COMM_STARTED also goes to PDU_CLLST_ONLINE.
///
/// Errors: PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_CONNECTED if the link is online.
PDU_API T_PDU_ERROR PDU_CALL PDUConnect(UNUM32 hMod, UNUM32 hCLL);

/// Takes a link offline and reports PDU_CLLST_OFFLINE in a status item. ComPrimitives that are
/// already queued are still executed.
///
/// Errors: PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_NOT_CONNECTED if the link is offline.
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

/// Stores in *pParamItem a pointer into the library's ComParam table, not a copy. The item belongs
/// to the library, changes with the next PDUSetComParam and is valid until PDUDestruct. Passing it
/// to PDUDestroyItem is allowed and does nothing. There is one table for the whole process; the
/// handles are not checked. pParamItem may be null.
///
/// Errors: PDU_ERR_COMPARAM_NOT_SUPPORTED for an unknown id.
PDU_API T_PDU_ERROR PDU_CALL PDUGetComParam(UNUM32 hMod, UNUM32 hCLL, UNUM32 ParamId,
                                            PDU_PARAM_ITEM** pParamItem);

/// Copies a value into the ComParam table. It takes effect at once, for every link and for every
/// ComPrimitive executed from now on; the handles are not checked. The ComParam's own type decides
/// how pComParamData is read, not the type in the item. The item may be the one that PDUGetComParam
/// returned. Lengths in field records are trusted; without a data pointer only the length changes,
/// up to what the ComParam's buffer holds.
///
/// An existing link takes CP_CanPhysReqId and CP_CanRespUSDTId from its unique response table
/// instead. CP_P2Max is in microseconds; the time-out in milliseconds is CP_P2Max / 2000.
///
/// Several threads may set ComParams at the same time. A thread that reads a value through the
/// pointer of PDUGetComParam must make sure that no other thread sets it meanwhile.
///
/// Errors: PDU_ERR_INVALID_PARAMETERS for a null item or an unknown id, PDU_ERR_FCT_FAILED for a
/// struct type other than the ComParam's own, or if memory runs out.
PDU_API T_PDU_ERROR PDU_CALL PDUSetComParam(UNUM32 hMod, UNUM32 hCLL, PDU_PARAM_ITEM* pParamItem);

// ---------------------------------------------------------------------------------------------
// ComPrimitives
// ---------------------------------------------------------------------------------------------

/// Queues a ComPrimitive on a link that is not offline and stores its handle in *phCoP (which may
/// be null). A link executes its ComPrimitives one after another. State changes, results and errors
/// arrive as event items; the last item has the state PDU_COPST_FINISHED or PDU_COPST_CANCELLED.
///
/// CoPType is one of PDU_COPT_...:
///
/// - PDU_COPT_SENDRECV sends the CoPDataSize bytes at pCoPData as a request. With a unique response
///   table of one entry or none the request goes to a single control unit, up to ten times until
///   its response matches one of the expected responses. Every response that matches none gives an
///   error item PDU_ERR_EVT_RX_TIMEOUT; no response at all ends the request with
///   PDU_ERR_EVT_TX_ERROR. With two entries or more the request goes out once, on the functional
///   identifier CP_CanFuncReqId, and every entry's response that matches is delivered; other
///   responses are dropped without an item. If the exchange as a whole fails, the error item is
///   PDU_ERR_EVT_RX_TIMEOUT.
/// - PDU_COPT_STARTCOMM also starts tester present with CP_TesterPresentTime (microseconds) and
///   CP_TesterPresentMessage (1 to 32 bytes). PDU_COPT_STOPCOMM ends it.
/// - PDU_COPT_UPDATEPARAM and PDU_COPT_RESTORE_PARAM only report that they are finished.
/// - Other types are queued, have no effect and give no item.
///
/// On a raw link PDU_COPT_STARTCOMM sends one CAN frame (four identifier bytes, most significant
/// first, then the data) if NumSendCycles is at least 1, and gives no item. PDU_COPT_SENDRECV
/// receives frames on a thread of its own if NumReceiveCycles is 0 or less (1 or more receives
/// nothing). It is finished at once, but its results keep arriving until the next PDU_COPT_SENDRECV
/// of the link or the end of the link.
///
/// pCoPData and pCopCtrlData are copied, except for the bytes of the TxFlag, which are read during
/// this call only. Both pointers may be null if they are not needed; without expected responses no
/// response is delivered. pCoPTag is returned in every item unchanged; it may be null.
///
/// Errors: PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_NOT_CONNECTED if the link is offline,
/// PDU_ERR_FCT_FAILED if memory runs out (*phCoP then names no ComPrimitive). If memory runs out
/// for the control data alone, the call succeeds and no response is expected.
PDU_API T_PDU_ERROR PDU_CALL PDUStartComPrimitive(UNUM32 hMod, UNUM32 hCLL, T_PDU_COPT CoPType,
                                                  UNUM32 CoPDataSize, UNUM8* pCoPData,
                                                  PDU_COP_CTRL_DATA* pCopCtrlData, void* pCoPTag,
                                                  UNUM32* phCoP);

/// Asks a ComPrimitive to end. Its last status item then has the state PDU_COPST_CANCELLED. A
/// request to a single control unit that is already under way is completed first. Cancelling a
/// finished ComPrimitive that is still registered succeeds and does nothing; this includes one that
/// receives frames on a raw link, which goes on receiving.
///
/// Errors: PDU_ERR_INVALID_HANDLE for an unknown link or ComPrimitive.
PDU_API T_PDU_ERROR PDU_CALL PDUCancelComPrimitive(UNUM32 hMod, UNUM32 hCLL, UNUM32 hCoP);

// ---------------------------------------------------------------------------------------------
// Events and items
// ---------------------------------------------------------------------------------------------

/// Takes the oldest item out of an event queue without waiting, and stores it in *pEventItem. The
/// queue is the system's if hMod is PDU_HANDLE_UNDEF, the link's if hMod and hCLL name a link, else
/// the module's. The item then belongs to the application, which passes it to PDUDestroyItem.
///
/// Errors: PDU_ERR_EVENT_QUEUE_EMPTY (*pEventItem is null), PDU_ERR_INVALID_PARAMETERS if
/// pEventItem is null.
PDU_API T_PDU_ERROR PDU_CALL PDUGetEventItem(UNUM32 hMod, UNUM32 hCLL, PDU_EVENT_ITEM** pEventItem);

/// Releases an item that the library returned, with everything it points to. Null, ComParam items,
/// information items and outputs of PDUIoCtl are accepted, but not released.
///
/// Errors: PDU_ERR_PDUAPI_NOT_CONSTRUCTED (the item is not released).
PDU_API T_PDU_ERROR PDU_CALL PDUDestroyItem(PDU_ITEM* pItem);

/// Registers the callback for events of the system (hMod PDU_HANDLE_UNDEF), of all modules (hCLL
/// PDU_HANDLE_UNDEF; there is one for all, whatever hMod is) or of a link. Null removes it. After
/// an item is queued, the link's callback is called, else the modules', else the system's; see
/// CALLBACKFNC.
///
/// Errors: PDU_ERR_INVALID_HANDLE for an unknown link.
PDU_API T_PDU_ERROR PDU_CALL PDURegisterEventCallback(UNUM32 hMod, UNUM32 hCLL,
                                                      CALLBACKFNC EventCallbackFunction);

// ---------------------------------------------------------------------------------------------
// Objects, modules and resources
// ---------------------------------------------------------------------------------------------

/// Looks up the id of an object by its exact name; case matters. The ids are the library's own, so
/// always look them up. Known names: the protocols ISO_15765_3_on_ISO_15765_2 and ISO_11898_RAW,
/// the bus type ISO_11898_2_DWCAN, the pin types HI and LOW (HI has the id 0), the resource
/// ISO_UDS_on_OBD, 25 commands of PDUIoCtl and 228 ComParams. pPduObjectId may be null. Also works
/// before PDUConstruct.
///
/// Errors: PDU_ERR_INVALID_PARAMETERS for an unknown name or object type (*pPduObjectId is 0).
PDU_API T_PDU_ERROR PDU_CALL PDUGetObjectId(T_PDU_OBJT pduObjectType, CHAR8* pShortname,
                                            UNUM32* pPduObjectId);

/// Looks for dongles on every enabled transport and returns the list of all known modules. It takes
/// as long as the slowest transport: serial 0.2 s, cloud 0.5 s, Bluetooth LE 2 s. A dongle keeps
/// its handle until PDUDestruct. A dongle that has vanished stays in the list; PDUGetStatus then
/// returns PDU_MODST_NOT_AVAIL, even after it is back, until the next PDUConstruct.
///
/// Errors: PDU_ERR_PDUAPI_NOT_CONSTRUCTED, PDU_ERR_INVALID_PARAMETERS if pModuleIdList is null,
/// PDU_ERR_FCT_FAILED if memory for the list runs out (*pModuleIdList is not written). A dongle for
/// which memory runs out during the search is missing from the list.
PDU_API T_PDU_ERROR PDU_CALL PDUGetModuleIds(PDU_MODULE_ITEM** pModuleIdList);

/// Returns the resources of a module that match the bus type and the protocol in pResourceIdData
/// (both 0, or a null pointer: all resources; pins are ignored). The list always has one module
/// entry, without ids if nothing matches. The handle is not checked.
///
/// Errors: PDU_ERR_INVALID_PARAMETERS if pResourceIdList is null, PDU_ERR_FCT_FAILED if memory runs
/// out (*pResourceIdList is not written).
PDU_API T_PDU_ERROR PDU_CALL PDUGetResourceIds(UNUM32 hMod, PDU_RSC_DATA* pResourceIdData,
                                               PDU_RSC_ID_ITEM** pResourceIdList);

/// Does nothing and succeeds. *pOutputConflictList is not written: set it to null before the call.
///
/// Errors: none.
PDU_API T_PDU_ERROR PDU_CALL
PDUGetConflictingResources(UNUM32 resourceId, PDU_MODULE_ITEM* pInputModuleList,
                           PDU_RSC_CONFLICT_ITEM** pOutputConflictList);

/// Returns a copy of the link's unique response table; null if the link has none.
///
/// Errors: PDU_ERR_INVALID_HANDLE, PDU_ERR_INVALID_PARAMETERS if pUniqueRespIdTable is null. If
/// memory runs out, the call succeeds with null.
PDU_API T_PDU_ERROR PDU_CALL PDUGetUniqueRespIdTable(
    UNUM32 hMod, UNUM32 hCLL, PDU_UNIQUE_RESP_ID_TABLE_ITEM** pUniqueRespIdTable);

/// Gives the link a new unique response table, used from the next request on. The table is copied
/// (struct and long fields without their data) and stays the application's; it may be one that
/// PDUGetUniqueRespIdTable returned. With one entry, requests go to that control unit. With
/// several, requests go out functionally, and the entries' CP_CanRespUSDTId distinguish the
/// answers. An entry that repeats the CP_CanRespUSDTId of an earlier one is left out; results carry
/// the position among the remaining entries. An empty table is accepted.
///
/// With null the link has no table, and its requests end with PDU_ERR_EVT_TX_ERROR.
///
/// Errors: PDU_ERR_INVALID_HANDLE. If memory runs out, the call succeeds and the link has no table.
PDU_API T_PDU_ERROR PDU_CALL PDUSetUniqueRespIdTable(
    UNUM32 hMod, UNUM32 hCLL, PDU_UNIQUE_RESP_ID_TABLE_ITEM* pUniqueRespIdTable);

/// Marks a module as connected (PDU_MODST_READY). For a dongle behind the cloud relay it also
/// directs the connection to that dongle.
///
/// Errors: PDU_ERR_INVALID_HANDLE, also for PDU_HANDLE_UNDEF.
PDU_API T_PDU_ERROR PDU_CALL PDUModuleConnect(UNUM32 hMod);

/// Marks a module as present, but not connected (PDU_MODST_AVAIL). Its links stay valid.
///
/// Errors: PDU_ERR_INVALID_HANDLE, also for PDU_HANDLE_UNDEF.
PDU_API T_PDU_ERROR PDU_CALL PDUModuleDisconnect(UNUM32 hMod);

/// Stores the current time of the clock that stamps event items: microseconds, with a resolution of
/// one millisecond, wrapping after 71.6 minutes. pTimestamp may be null.
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
