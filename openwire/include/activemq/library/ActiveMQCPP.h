#pragma once

namespace activemq::library {

/// Set-up and shut-down of the messaging library, to be called once around all use of it.
/// This library keeps no state of its own: closed objects may also be deleted after the shut-down.
class ActiveMQCPP {
public:
    static void initializeLibrary();
    static void initializeLibrary(int argc, char **argv);
    static void shutdownLibrary();
};

} // namespace activemq::library
