#pragma once

namespace harbor {

class CommonApplication;

// Gives the share layer what it needs from the application (port, screen
// hold) and gives the application its Wi-Fi share through makeShareServer.
void installShareServices(CommonApplication& application);

}  // namespace harbor
