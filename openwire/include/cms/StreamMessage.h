#pragma once

#include <cms/Message.h>

namespace cms {

/// A body of a row of values. Received only: headers and properties can be read, the body is left
/// alone.
class CMS_API StreamMessage : public virtual Message { };

} // namespace cms
