#pragma once

namespace tarvik {

// Keeps the connection to the relay up from its start until quitRequested is set.
void ConnectionThread(void* argument);

// Ends the transfers of the connection that may be up, so that its threads notice. Any thread.
void AbortLink();

}  // namespace tarvik
