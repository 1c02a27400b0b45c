#pragma once

#include <string>

namespace kvx::test {

/// What a colleague's random edits of tables like these come to, recorded by the session extension;
/// his copy need not hold what ours does. Empty where they changed nothing.
std::string randomChangeset(const char *schema, unsigned int seed);

} // namespace kvx::test
