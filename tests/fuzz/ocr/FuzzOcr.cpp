#include "../Require.h"
#include "ocr/worker/Document.h"
#include "ocr/worker/Refusal.h"

#include <algorithm>
#include <cstdint>

using namespace kvx::ocr;
using kvx::test::require;

/// A document is refused with a reason or has pages, each of which is refused or accepted, without
/// decoding any.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    try {
        const auto document = Document::open({ reinterpret_cast<const char *>(data), size });
        const int pages = document->pages();
        require(pages >= 1 && pages <= 10'001, "a document has pages, and not without end");
        for (int page = 0; page < std::min(pages, 3); ++page) {
            try {
                document->check(page);
            } catch (const Refusal &refusal) {
                require(*refusal.what() != '\0', "a refusal says why");
            }
        }
    } catch (const Refusal &refusal) {
        require(*refusal.what() != '\0', "a refusal says why");
    }
    return 0;
}
