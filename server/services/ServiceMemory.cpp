#include "services/ServiceMemory.h"
#include "services/Call.h"

namespace kvx::server {

std::shared_ptr<ServiceMemory> makeServiceMemory()
{
    return std::make_shared<ServiceMemory>();
}

} // namespace kvx::server
