#pragma once

#include <gtest/gtest.h>

#include "conformance/framework/library.h"

namespace conformance {

inline void Construct() { ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR); }
inline void Destruct() { ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR); }

}  // namespace conformance
