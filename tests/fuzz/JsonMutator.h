#pragma once

#include <cstddef>
#include <cstdint>

namespace kvx::test {

/// For LLVMFuzzerCustomMutator: changes one place of a JSON text (another value, another kind of
/// value, a member twice, gone, elsewhere or under another key), or the bytes as the fuzzer's
/// library does. The new size.
std::size_t mutateJson(
    std::uint8_t *data, std::size_t size, std::size_t maxSize, unsigned int seed);

} // namespace kvx::test
