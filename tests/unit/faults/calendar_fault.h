#pragma once

namespace tarvik::test {

// Moves the calendar clock of OsCalendarSecond ahead, for the rest of the program.
void AdvanceCalendar(int seconds);

}  // namespace tarvik::test
