#include "admin/ResourceCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "base/Config.h"
#include "base/JsonText.h"
#include "base/Text.h"
#include "services/StoredBytes.h"
#include "store/BlobStore.h"
#include "store/ResourceStore.h"

#include <filesystem>
#include <system_error>

namespace kvx::server {

namespace {

int listPackages(AdminSession &session, const CommandArguments &)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    Listing listing({ { "version", "Version" }, { "current", "Delivered" },
        { "published", "Published" }, { "bytes", "Size" } });
    for (const ResourcePackage &package : ResourceStore(session.db()).all()) {
        listing.add({ package.version, Cell::flag(package.current, "yes", "no"),
            Cell::time(package.at), Cell::bytes(BlobStore::size(session.db(), package.blob)) });
    }
    return session.done("packages", listing);
}

int publishPackage(AdminSession &session, const CommandArguments &arguments)
{
    const auto version = displayName(arguments.text("version"), 100);
    if (!version)
        throw CommandUsage("the version must have 1 to 100 characters");
    const std::string path = arguments.text("file");
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        throw CommandRefused(path + " is not a file that can be read");
    const auto stored = [&] {
        try {
            return storeFile(session.config(), path);
        } catch (const std::system_error &fault) {
            throw CommandRefused(fault.what());
        }
    }();
    AdminChange change(session);
    BlobStore(session.config().data)
        .record(change.db(), stored->path, stored->sha256, stored->size, change.now());
    ResourceStore(change.db()).publish(*version, stored->sha256, wallTime());
    change.audit(*version, stored->sha256);
    change.commit();
    return session.done("Version " + *version + " is delivered from now on.",
        ",\"version\":" + jsonText(*version) + ",\"bytes\":" + std::to_string(stored->size));
}

} // namespace

const AdminCommandTable resourceCommands = {
    { "resource", "publish", "deliver a package of common resources from now on",
        { { "version", "what clients compare, such as 2026.11" }, { "file", "the package" } },
        publishPackage },
    { "resource", "list", "list the packages that were published", {}, listPackages },
};

} // namespace kvx::server
