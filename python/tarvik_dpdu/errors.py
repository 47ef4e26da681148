"""What can go wrong, and the names of the numbers that say so."""

from typing import Dict, Optional

from . import constants

STATUS_MEANINGS: Dict[str, str] = {
    "PDU_STATUS_NOERROR": "success",
    "PDU_ERR_FCT_FAILED": "the function failed",
    "PDU_ERR_RESERVED_1": "reserved",
    "PDU_ERR_COMM_PC_TO_VCI_FAILED": "no communication with the module",
    "PDU_ERR_PDUAPI_NOT_CONSTRUCTED": "PDUConstruct has not been called",
    "PDU_ERR_SHARING_VIOLATION": "PDUConstruct has already been called",
    "PDU_ERR_RESOURCE_BUSY": "the resource is in use",
    "PDU_ERR_RESOURCE_TABLE_CHANGED": "the resource table changed",
    "PDU_ERR_RESOURCE_ERROR": "the resource failed",
    "PDU_ERR_CLL_NOT_CONNECTED": "the link is offline",
    "PDU_ERR_CLL_NOT_STARTED": "communication has not been started",
    "PDU_ERR_INVALID_PARAMETERS": "a parameter is wrong",
    "PDU_ERR_INVALID_HANDLE": "no such module, link or ComPrimitive",
    "PDU_ERR_VALUE_NOT_SUPPORTED": "a value is not supported",
    "PDU_ERR_ID_NOT_SUPPORTED": "the command is not supported",
    "PDU_ERR_COMPARAM_NOT_SUPPORTED": "no such ComParam",
    "PDU_ERR_COMPARAM_LOCKED": "the ComParam is locked",
    "PDU_ERR_TX_QUEUE_FULL": "the transmit queue is full",
    "PDU_ERR_EVENT_QUEUE_EMPTY": "no event item is waiting",
    "PDU_ERR_VOLTAGE_NOT_SUPPORTED": "the voltage is not supported",
    "PDU_ERR_MUX_RSC_NOT_SUPPORTED": "the pins cannot be switched this way",
    "PDU_ERR_CABLE_UNKNOWN": "the cable is unknown",
    "PDU_ERR_NO_CABLE_DETECTED": "there is no cable",
    "PDU_ERR_CLL_CONNECTED": "the link is online already",
    "PDU_ERR_TEMPPARAM_NOT_ALLOWED": "temporary ComParams are not allowed",
    "PDU_ERR_RSC_LOCKED": "the resource is locked",
    "PDU_ERR_RSC_LOCKED_BY_OTHER_CLL": "another link holds the lock",
    "PDU_ERR_RSC_NOT_LOCKED": "the resource is not locked",
    "PDU_ERR_MODULE_NOT_CONNECTED": "the module is not connected",
    "PDU_ERR_API_SW_OUT_OF_DATE": "the library is too old for the module",
    "PDU_ERR_MODULE_FW_OUT_OF_DATE": "the module's firmware is too old",
    "PDU_ERR_PIN_NOT_CONNECTED": "the pin is not connected",
    "PDU_ERR_IP_PROTOCOL_NOT_SUPPORTED": "IP version not supported",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_FAILED": "routing activation failed",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_AUTHENTICATION_FAILED": "wrong credentials",
    "PDU_ERR_DOIP_AMBIGUOUS_LOGICAL_ADDRESS": "two entities with one address",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_INVALID_SOURCE_ADDRESS": "unknown tester address",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_NO_DATA_SOCKET_AVAILABLE": "all sockets taken",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_SOURCE_ADDRESS_CHANGED": "tester address changed",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_SOURCE_ADDRESS_IN_USE": "tester address in use",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_CONFIRMATION_REJECTED": "refused by the vehicle",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_TYPE_UNSUPPORTED": "activation type unknown",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_RESPONSE_CODE_UNKNOWN": "answer not understood",
    "PDU_ERR_DOIP_ROUTING_ACTIVATION_RESPONSE_TIMEOUT": "no answer to activation",
    "PDU_ERR_DOIP_RESPONSE_TIMEOUT": "no answer",
    "PDU_ERR_TLS_REQUIRED": "the entity wants TLS",
    "PDU_ERR_TLS_CONF_INCOMPLETE": "TLS set-up incomplete",
    "PDU_ERR_TLS_VERSION_AGREEMENT_FAILED": "no common TLS version",
    "PDU_ERR_TLS_CIPHER_AGREEMENT_FAILED": "no common cipher",
    "PDU_ERR_TLS_CERT_VERIFY_FAILED": "certificate refused",
    "PDU_ERR_TLS_VERSION_NOT_SUPPORTED": "TLS version not supported",
    "PDU_ERR_TLS_CIPHER_NOT_SUPPORTED": "cipher not supported",
}

# Libraries use the two for "no answer" with different meanings, so both are in the text.
ERROR_EVENT_MEANINGS: Dict[str, str] = {
    "PDU_ERR_EVT_NOERROR": "no error",
    "PDU_ERR_EVT_FRAME_STRUCT": "malformed frame",
    "PDU_ERR_EVT_TX_ERROR": "the request could not be sent or nothing came back",
    "PDU_ERR_EVT_TESTER_PRESENT_ERROR": "tester present failed",
    "PDU_ERR_EVT_RX_TIMEOUT": "no answer, or none that was expected",
    "PDU_ERR_EVT_RX_ERROR": "receiving failed",
    "PDU_ERR_EVT_PROT_ERR": "protocol error",
    "PDU_ERR_EVT_LOST_COMM_TO_VCI": "the module is gone",
    "PDU_ERR_EVT_VCI_HARDWARE_FAULT": "the module is broken",
    "PDU_ERR_EVT_INIT_ERROR": "initialisation failed",
    "PDU_ERR_EVT_RSC_LOCKED": "the resource is locked",
}

NEGATIVE_RESPONSE_NAMES: Dict[int, str] = {
    0x10: "generalReject",
    0x11: "serviceNotSupported",
    0x12: "subFunctionNotSupported",
    0x13: "incorrectMessageLengthOrInvalidFormat",
    0x14: "responseTooLong",
    0x21: "busyRepeatRequest",
    0x22: "conditionsNotCorrect",
    0x24: "requestSequenceError",
    0x25: "noResponseFromSubnetComponent",
    0x26: "failurePreventsExecutionOfRequestedAction",
    0x31: "requestOutOfRange",
    0x33: "securityAccessDenied",
    0x34: "authenticationRequired",
    0x35: "invalidKey",
    0x36: "exceedNumberOfAttempts",
    0x37: "requiredTimeDelayNotExpired",
    0x38: "secureDataTransmissionRequired",
    0x39: "secureDataTransmissionNotAllowed",
    0x3A: "secureDataVerificationFailed",
    0x50: "certificateVerificationFailedInvalidTimePeriod",
    0x51: "certificateVerificationFailedInvalidSignature",
    0x52: "certificateVerificationFailedInvalidChainOfTrust",
    0x53: "certificateVerificationFailedInvalidType",
    0x54: "certificateVerificationFailedInvalidFormat",
    0x55: "certificateVerificationFailedInvalidContent",
    0x56: "certificateVerificationFailedInvalidScope",
    0x57: "certificateVerificationFailedInvalidCertificate",
    0x58: "ownershipVerificationFailed",
    0x59: "challengeCalculationFailed",
    0x5A: "settingAccessRightsFailed",
    0x5B: "sessionKeyCreationDerivationFailed",
    0x5C: "configurationDataUsageFailed",
    0x5D: "deAuthenticationFailed",
    0x70: "uploadDownloadNotAccepted",
    0x71: "transferDataSuspended",
    0x72: "generalProgrammingFailure",
    0x73: "wrongBlockSequenceCounter",
    0x78: "requestCorrectlyReceivedResponsePending",
    0x7E: "subFunctionNotSupportedInActiveSession",
    0x7F: "serviceNotSupportedInActiveSession",
    0x81: "rpmTooHigh",
    0x82: "rpmTooLow",
    0x83: "engineIsRunning",
    0x84: "engineIsNotRunning",
    0x85: "engineRunTimeTooLow",
    0x86: "temperatureTooHigh",
    0x87: "temperatureTooLow",
    0x88: "vehicleSpeedTooHigh",
    0x89: "vehicleSpeedTooLow",
    0x8A: "throttlePedalTooHigh",
    0x8B: "throttlePedalTooLow",
    0x8C: "transmissionRangeNotInNeutral",
    0x8D: "transmissionRangeNotInGear",
    0x8F: "brakeSwitchesNotClosed",
    0x90: "shifterLeverNotInPark",
    0x91: "torqueConverterClutchLocked",
    0x92: "voltageTooHigh",
    0x93: "voltageTooLow",
    0x94: "resourceTemporarilyNotAvailable",
}


def _names(prefixes: "tuple[str, ...]") -> Dict[int, str]:
    return {
        value: name
        for name, value in vars(constants).items()
        if name.startswith(prefixes) and isinstance(value, int)
    }


_STATUS_NAMES = {getattr(constants, name): name for name in STATUS_MEANINGS}
_ERROR_EVENT_NAMES = {getattr(constants, name): name for name in ERROR_EVENT_MEANINGS}
_STATE_NAMES = _names(("PDU_COPST_", "PDU_CLLST_", "PDU_MODST_"))


def status_name(status: int) -> str:
    """`PDU_ERR_INVALID_HANDLE` for 0x60; an empty text for a number without a name."""
    return _STATUS_NAMES.get(status, "")


def error_event_name(code: int) -> str:
    """`PDU_ERR_EVT_RX_TIMEOUT` for 0x103; an empty text for a number without a name."""
    return _ERROR_EVENT_NAMES.get(code, "")


def state_name(state: int) -> str:
    """`PDU_MODST_READY` for 0x8060; an empty text for a number without a name."""
    return _STATE_NAMES.get(state, "")


def negative_response_name(code: int) -> str:
    """`requestOutOfRange` for 0x31; `unknown code` for a number without a name."""
    return NEGATIVE_RESPONSE_NAMES.get(code, "unknown code")


class PduError(Exception):
    """The library, the module or the vehicle failed. All exceptions of this package derive from it.

    status: the number that the library returned, or that of an error item; None if there is none.
    name: the number's name, such as `PDU_ERR_INVALID_HANDLE`, or an empty text.
    meaning: what it means, in words.
    function: the function that returned it, or an empty text.
    """

    def __init__(
        self, meaning: str, *, status: Optional[int] = None, name: str = "", function: str = ""
    ) -> None:
        self.status = status
        self.name = name
        self.meaning = meaning
        self.function = function
        super().__init__(self._text())

    def _text(self) -> str:
        text = self.meaning
        if self.function:
            text = f"{self.function} failed: {text}"
        if self.status is not None:
            number = f"0x{self.status:02X}"
            text += f" ({self.name}, {number})" if self.name else f" ({number})"
        return text


class NoLibrary(PduError):
    """There is no D-PDU library of that name, or it cannot be loaded."""


class NoModule(PduError):
    """No module matches, or several do."""


class LostModule(PduError):
    """The module was there and is gone: the dongle was pulled out, or its connection was lost."""


class NoAnswer(PduError):
    """The control unit did not answer, or not as expected."""


class RequestTimeout(NoAnswer):
    """The library did not finish a ComPrimitive within the caller's limit. It was cancelled."""


class UnknownName(PduError, LookupError):
    """The library does not know the name of a protocol, a ComParam, an IOCTL …"""


class NegativeResponse(PduError):
    """The control unit refused a request.

    code: the negative response code, such as 0x31; code_name: its name, `requestOutOfRange`.
    service: the service that was refused. data: the whole response.
    """

    def __init__(self, data: bytes) -> None:
        self.data = data
        self.service = data[1]
        self.code = data[2]
        self.code_name = negative_response_name(self.code)
        super().__init__(
            f"negative response {self.code_name} (0x{self.code:02X}) to service 0x{self.service:02X}"
        )


class Closed(PduError):
    """A library, a module or a link was used after its end."""


def status_error(function: str, status: int) -> PduError:
    """The exception for a function's result other than PDU_STATUS_NOERROR."""
    name = status_name(status)
    meaning = STATUS_MEANINGS.get(name, "unknown status")
    return PduError(meaning, status=status, name=name, function=function)


def check(function: str, status: int) -> None:
    """Raises PduError unless the status is PDU_STATUS_NOERROR."""
    if status != constants.PDU_STATUS_NOERROR:
        raise status_error(function, status)
