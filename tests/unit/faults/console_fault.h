#pragma once

namespace tarvik::test {

// Calls `action` whenever the library asks whether standard output may wait. Null: no longer.
void OnOutputQuestion(void (*action)());

// Windows: how often the console's source has asked the system for the type of a file.
int FileTypeQuestions();

}  // namespace tarvik::test
