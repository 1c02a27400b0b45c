#include "../Require.h"
#include "base/Text.h"
#include "services/FileNames.h"

#include "KVXCommon/ZipEntryName.h"

#include <cstdint>
#include <filesystem>

using namespace kvx::server;
using kvx::test::require;

namespace {

/// The client's judge of what it would put into a folder; it counts bytes, the server characters.
bool isSafeForClients(const std::string &name)
{
    return name.size() > 255 || kvx::isSafeEntryName(QString::fromStdString(name));
}

void checkOwnName(const std::string &name)
{
    require(!name.empty() && name.size() <= 480 && isValidUtf8(name), "a name is a short text");
    require(std::filesystem::path(name).filename() == name && name != "." && name != "..",
        "a name stays in its folder");
    const auto again = parseFileName(name);
    require(again.has_value(), "a name that was given out is accepted");
}

} // namespace

/// A name that the server accepts is a plain file name for everybody else, too.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const bool safe = isSafeForClients(text);
    if (safe && size <= 255)
        require(text.find_first_of(std::string_view("/\\:\0", 4)) == std::string::npos,
            "no folder, drive or end in a name");
    const auto name = parseFileName(text);
    if (!name)
        return 0;
    using Kind = FileName::Kind;
    switch (name->kind) {
    case Kind::ChangeLog:
        require(name->version >= 0 && name->version <= 999'999'999, "a version has nine digits");
        require(logName(name->guid, name->version) == text, "a log's name is its own");
        require(safe, "clients accept a log's name");
        break;
    case Kind::BadChangeLog:
        break;
    case Kind::ProjectFile:
        require(text == name->guid + ".KVX" && safe, "clients accept a project file's name");
        break;
    case Kind::Attachment:
        require(isGuid(name->guid), "an attachment belongs to a project");
        require(isSafeForClients(name->name), "clients accept an attachment's name");
        checkOwnName(name->name);
        break;
    case Kind::Own:
        require(name->guid.empty() && isSafeForClients(name->name), "clients accept an own name");
        checkOwnName(name->name);
        break;
    }
    return 0;
}
