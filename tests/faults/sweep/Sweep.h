#pragma once

#include "CallCounter.h"

#include <QString>
#include <QTemporaryDir>
#include <functional>

namespace kvx::test {

/// Lets the outside calls of a process fail one after the other: the first in the first run of an
/// operation, the second in the second, until a run needs no more calls. Once with single failures,
/// once with failures that last.
///
/// With KVX_TEST_LONG every call fails with each of the errors that it may have; else each call, or
/// an even selection of them, with one.
class Sweep {
public:
    Sweep();
    ~Sweep();
    Sweep(const Sweep &) = delete;
    Sweep &operator=(const Sweep &) = delete;

    /// Processes that start while one of these lives are counted.
    class Counted {
    public:
        explicit Counted(const Sweep &sweep);
        ~Counted();
        Counted(const Counted &) = delete;
        Counted &operator=(const Counted &) = delete;
    };

    /// One run of an operation. The operation is told when to be under fire.
    struct Run {
        CallCounter &counter;
        long failAt;
        CallCounter::Span span;
        CallCounter::Scope scope;
        int flavour;

        void begin() const; ///< counts from here on
        bool end() const; ///< and no more; whether a call has failed
    };

    /// `operation` brings its own preparation and its checks; it calls begin and end of the run.
    /// `selected`: one of how many calls fails without KVX_TEST_LONG.
    void over(const QString &name, CallCounter::Scope scope, int selected,
        const std::function<void(const Run &)> &operation);
    /// For a process that has the counted calls linked in.
    static void over(CallCounter &counter, const QString &name, CallCounter::Scope scope,
        int selected, const std::function<void(const Run &)> &operation);

private:
    QTemporaryDir m_folder;
    QString m_file;
    CallCounter *m_counter = nullptr;
};

/// The counter of this process, where the counted calls are linked in.
CallCounter &ownCallCounter();

} // namespace kvx::test
