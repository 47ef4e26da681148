#pragma once

namespace tarvik {

// Body of the connection thread: keeps the connection to the relay up until quitRequested is set.
void ConnectionThread(void* argument);

// Ends the transfers of the current connection, if any, so that its threads notice. Any thread.
void AbortLink();

}  // namespace tarvik
