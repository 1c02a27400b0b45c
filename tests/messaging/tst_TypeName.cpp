#include "messaging/TypeName.h"

#include <gtest/gtest.h>

namespace shapes {
class Square { };
} // namespace shapes

TEST(TypeName, isWhatTheSourceSays)
{
    EXPECT_EQ(kvx::typeName(typeid(shapes::Square)), "shapes::Square");
    EXPECT_EQ(kvx::typeName(typeid(int)), "int");
}
