#include "services/Users.h"
#include "base/Text.h"
#include "store/Db.h"
#include "store/UserStore.h"

namespace kvx::server {

namespace {

Reply updateUserProductVersion(Call &call)
{
    const std::string email = canonicalEmail(call.request().text("Email", 254));
    const auto version = static_cast<int>(call.request().integer("UserProductVersion", 0, 3));
    const auto user = findUser(call.db(), email);
    if (!user)
        return Reply::refused(StatusCode::NoSuchUser, { email });
    if (user->productVersion != version) {
        setProductVersion(call.db(), user->id, version);
        call.audit(static_cast<int>(StatusCode::Ok), email, std::to_string(version));
    }
    return Reply::ok();
}

} // namespace

const ServiceTable userServices = {
    { "updateuserproductversion", updateUserProductVersion, NamesOwnAccount | Writes },
};

} // namespace kvx::server
