#pragma once

#include <cms/Message.h>

namespace cms {

/// A body of named values. Received only: headers and properties can be read, the body is left
/// alone.
class CMS_API MapMessage : public virtual Message { };

} // namespace cms
