#include "Require.h"

#include <content/Bill.h>
#include <content/Decimal.h>

#include <cstdint>

using namespace kvx::content;
using kvx::test::require;

/// An import (KVX_IMPORT names it) yields a bill that the store can take, or a reason.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray content(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const ImportResult result = KVX_IMPORT(content, QStringLiteral("a.file"));
    require(result.bill.has_value() == result.error.isEmpty(), "a bill or a reason");
    if (!result.bill) {
        require(result.error.contains(QLatin1String("a.file")), "the reason names the file");
        return 0;
    }
    const Bill &bill = *result.bill;
    for (std::size_t i = 0; i < bill.chapters.size(); ++i) {
        const int parent = bill.chapters[i].parent;
        require(parent >= -1 && parent < static_cast<int>(i), "chapters before what is in them");
    }
    for (const Bill::Item &item : bill.items) {
        require(item.chapter >= -1 && item.chapter < static_cast<int>(bill.chapters.size()),
            "an item's chapter is one of the bill's");
        if (item.rate)
            static_cast<void>(amountInCents(item.quantity, *item.rate));
        require(parseDecimal(formatDecimal(item.quantity)) == item.quantity,
            "a quantity reads back as written");
    }
    return 0;
}
