#include "program.h"
#include "text/wide_win32.h"

// The narrow arguments have lost what is beyond the ANSI code page.
int wmain(int count, wchar_t** arguments) {
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i)
        texts.push_back(dpdu::FromWide(arguments[i]));
    return dpdu::RunProgram(texts);
}
