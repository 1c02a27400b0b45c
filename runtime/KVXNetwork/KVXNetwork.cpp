#include <KVXNetwork/KVXNetwork.h>

#include "CurlNetwork.h"

#include <atomic>

namespace {

std::atomic<KVXNetwork *> installedNetwork { nullptr };

} // namespace

KVXNetwork *KVXNetwork::getInstance()
{
    if (KVXNetwork *installed = installedNetwork.load())
        return installed;
    // Never destroyed: managers that end with the process may still log out.
    static KVXNetwork *const builtIn = new kvx::CurlNetwork;
    return builtIn;
}

void KVXNetwork::setInstance(KVXNetwork *instance)
{
    installedNetwork.store(instance);
}
