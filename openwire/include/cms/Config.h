#pragma once

/// Marks the classes of the messaging interface. The library is linked statically: nothing to
/// export.
#define CMS_API
