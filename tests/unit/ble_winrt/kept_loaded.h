#pragma once

namespace tarvik::test {

// How often the library has asked to stay loaded. In this program that is all that it does.
int KeptLoaded();

}  // namespace tarvik::test
