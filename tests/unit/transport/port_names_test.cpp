#include "transport/serial/port_names.h"

#include <gtest/gtest.h>

namespace tarvik::test {
namespace {

TEST(PortNames, ComPortsFromZeroTo254HaveTheirOwnNumber) {
    EXPECT_EQ(NumberOfComPort("COM0"), 0);
    EXPECT_EQ(NumberOfComPort("COM7"), 7);
    EXPECT_EQ(NumberOfComPort("COM99"), 99);
    EXPECT_EQ(NumberOfComPort("COM254"), 254);
}

TEST(PortNames, NamesOtherThanCom0ToCom254HaveNoNumber) {
    for (const char* name :
         {"COM255", "COM256", "COM1000", "COM99999999999999999999", "COM", "COMx", "COM-1", "COM+1",
          "COM 1", "COM1 ", "COM1x", "COM07", "COM00", "com1", "LPT1", "CNCA0", "", "1"}) {
        EXPECT_FALSE(NumberOfComPort(name)) << name;
    }
}

TEST(PortNames, TtyAcmKeepsItsNumberAndTtyUsbStartsAt128) {
    EXPECT_EQ(NumberOfTty("ttyACM0"), 0);
    EXPECT_EQ(NumberOfTty("ttyACM254"), 254);
    EXPECT_EQ(NumberOfTty("ttyUSB0"), 128);
    EXPECT_EQ(NumberOfTty("ttyUSB126"), 254);
}

TEST(PortNames, OtherTtysHaveNoNumber) {
    for (const char* name : {"ttyACM255", "ttyUSB127", "ttyACM", "ttyUSB", "ttyS0", "tty1",
                             "ttyACM1x", "ttyACM01", "ttyacm1", "ptmx", "COM1", ""}) {
        EXPECT_FALSE(NumberOfTty(name)) << name;
    }
}

}  // namespace
}  // namespace tarvik::test
