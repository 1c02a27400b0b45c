#include "admin/Verify.h"
#include "admin/AdminSession.h"
#include "admin/CommandLine.h"
#include "admin/Listing.h"
#include "base/Config.h"
#include "base/JsonText.h"
#include "store/StoreCheck.h"

#include <iostream>

namespace kvx::server {

int verify(const Config &config, bool deep, bool json)
{
    AdminSession session(config, "verify", json);
    std::string faults;
    int count = 0;
    const auto add = [&](const std::string &fault) {
        ++count;
        if (json)
            faults += (faults.empty() ? "" : ",") + jsonText(fault);
        else
            std::cout << printable(fault) << '\n';
    };
    StoreCheck(session.db(), config.data, add).run(deep);
    if (count == 0)
        return session.done("The database and the store are in order.", ",\"faults\":[]");
    if (json)
        std::cout << "{\"ok\":false,\"faults\":[" << faults << "]}\n";
    else
        std::cerr << "kvx-server: " << count << " faults\n";
    return ExitRefused;
}

} // namespace kvx::server
