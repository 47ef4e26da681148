#pragma once

namespace tarvik::test {

// Moves the calendar clock of OsCalendarSecond ahead, for the rest of the program.
void AdvanceCalendar(int seconds);

// Calls `action` whenever the clock is read: for every line of the debug log, with the log's lock
// held. Null: no longer.
void OnCalendarRead(void (*action)());

}  // namespace tarvik::test
