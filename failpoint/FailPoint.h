#pragma once

/// A named step that a test can make fail: true where the step is to behave as if it had failed.
///
///     if (KVX_FAIL_POINT("save/log uploaded"))
///         return UploadFailed;
///
/// Names are "subject/step" or "what happened: service". Without the build option KVX_FAIL_POINTS
/// this is the constant `false`, the name is not even evaluated, and nothing of it is in the
/// program; shipped builds are made so.
#ifdef KVX_FAIL_POINTS
#define KVX_FAIL_POINT(name) (kvx::failpoint::pass(name))
#else
#define KVX_FAIL_POINT(name) (false)
#endif

#ifdef KVX_FAIL_POINTS

#include <string>

/// What the points do is said by a text of the form "name=action" or "name=action@n", several of
/// them separated by ";". Actions: "kill" (the process ends at once, as by SIGKILL), "error" (the
/// step fails), "delay:ms". Each acts once, on its n-th passing, the first unless said; "@*" is
/// every one.
///
/// A process reads the text from the environment variable KVX_FAIL_POINTS. "@file" names a file
/// that is read at every passing, so that a running process can be armed and disarmed; counting
/// begins anew when its text changes. KVX_FAIL_POINTS_PASSED names a file to which every passing
/// is added, a line "name" or, where it acts, "name=action".
namespace kvx::failpoint {

/// Any thread.
bool pass(const std::string &name);

/// For this process, in place of what the environment says; empty disarms. Throws
/// std::invalid_argument when the text is not of that form.
void arm(const std::string &text);

/// How often the point was passed since the points were armed.
int passings(const std::string &name);

} // namespace kvx::failpoint

#endif
