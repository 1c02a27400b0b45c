// Compiled as what is shipped: without the points.
#undef KVX_FAIL_POINTS
#include <FailPoint.h>

#include <string>

static_assert(!KVX_FAIL_POINT("step/that never fails"), "a point is the constant false");

bool stepThatNeverFails();

bool stepThatNeverFails()
{
    return KVX_FAIL_POINT("step: " + std::string("that never fails"));
}
