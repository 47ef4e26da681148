// run_read_only FILE COMMAND...: runs the command while nobody can write to the file. Under Wine
// the rights of files do not bind the administrator that everybody is.

#include <stdio.h>
#include <windows.h>

int wmain(int count, wchar_t** words) {
    wchar_t command[32768] = L"";
    STARTUPINFOW startup = {.cb = sizeof startup};
    PROCESS_INFORMATION started;
    DWORD code = 1;
    if (count < 3) return 2;
    const HANDLE file =
        CreateFileW(words[1], GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    if (file == INVALID_HANDLE_VALUE) {
        fprintf(stderr, "run_read_only: error %lu\n", GetLastError());
        return 2;
    }
    for (int i = 2; i < count; ++i) {
        wcscat(command, i > 2 ? L" " : L"");
        wcscat(command, words[i]);
    }
    if (!CreateProcessW(NULL, command, NULL, NULL, TRUE, 0, NULL, NULL, &startup, &started))
        return 2;
    WaitForSingleObject(started.hProcess, INFINITE);
    GetExitCodeProcess(started.hProcess, &code);
    return (int)code;
}
