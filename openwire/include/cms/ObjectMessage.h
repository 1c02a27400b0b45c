#pragma once

#include <cms/Message.h>

namespace cms {

/// A body of a serialised foreign object, which is never decoded. Received only: headers and
/// properties can be read, the body is left alone.
class CMS_API ObjectMessage : public virtual Message { };

} // namespace cms
