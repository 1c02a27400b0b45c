#include <activemq/library/ActiveMQCPP.h>

namespace activemq::library {

// Nothing is process-wide here; the calls exist for libraries that need them.

void ActiveMQCPP::initializeLibrary() { }

void ActiveMQCPP::initializeLibrary(int, char **) { }

void ActiveMQCPP::shutdownLibrary() { }

} // namespace activemq::library
