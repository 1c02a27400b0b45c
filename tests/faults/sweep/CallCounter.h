#pragma once

#include <atomic>
#include <type_traits>

namespace kvx::test {

/// What a process whose outside calls are counted (OutsideCalls.cpp) shares with the test that
/// lets one of them fail. Lies in a file that both map, named by KVX_CALL_COUNTER; in a process
/// without that variable it is a variable of its own.
///
/// Counted are calls on files, folders and sockets, each before it is carried out; pipes, events,
/// standard streams and files of the system (/proc, /sys, /dev, /etc, /usr) are not.
struct CallCounter {
    enum Scope { MainThread, AllThreads };
    enum Span {
        OneCall, ///< the next call of the kind is carried out again
        FromThereOn ///< all later calls of the kind fail too: a full disk, a network that is gone
    };

    std::atomic<int> armed; ///< nothing is counted while it is 0
    std::atomic<int> scope;
    std::atomic<int> span;
    std::atomic<long> failAt; ///< the call that fails; the first is 1
    std::atomic<int> flavour; ///< which of the errors that the call may have
    std::atomic<long> calls; ///< counted since it was armed
    std::atomic<int> struck; ///< 1 once a call has failed
    std::atomic<int> kind; ///< of the first call that failed
    char what[200]; ///< its name, its file and the error it was given
};

static_assert(std::atomic<long>::is_always_lock_free);
static_assert(std::is_standard_layout_v<CallCounter>);

} // namespace kvx::test
