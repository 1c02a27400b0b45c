#include "../Require.h"
#include "JsonMutator.h"
#include "projectlist/ProjectRecord.h"

#include <QJsonDocument>
#include <cstdint>

using kvx::test::require;

extern "C" std::size_t LLVMFuzzerCustomMutator(
    std::uint8_t *data, std::size_t size, std::size_t maxSize, unsigned int seed)
{
    return kvx::test::mutateJson(data, size, maxSize, seed);
}

/// A record reads from anything, and what a client writes of it reads back the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const auto record = kvx::readProjectRecord(QJsonDocument::fromJson(text).object());
    const QJsonObject written = record->toJson();
    const auto again = kvx::readProjectRecord(written);
    require(again->toJson() == written, "a record reads back as written");
    for (const auto &[user, permissions] : record->userPermissions()) {
        for (auto one = permissions.begin(); one != permissions.end(); ++one)
            require(record->permission(user, one.key()) == one.value(), "a permission is found");
    }
    return 0;
}
