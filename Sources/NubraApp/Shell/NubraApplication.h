#pragma once

// The application object: builds the desktop, the state and every long-lived part in their order,
// wires them, runs the event loop and tears everything down again.
class NubraApplication {
public:
    static int run(int argc, char** argv);
};
