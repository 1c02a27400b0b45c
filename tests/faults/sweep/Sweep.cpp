#include "Sweep.h"

#include <QElapsedTimer>
#include <QFile>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

namespace kvx::test {

namespace {

/// More calls than any operation makes: a run that never comes clean is a finding.
constexpr long farTooMany = 20000;

/// The most that the calls distinguish.
constexpr int flavours = 3;

} // namespace

Sweep::Sweep()
    : m_file(m_folder.filePath(QStringLiteral("calls")))
{
    const int file
        = open(QFile::encodeName(m_file).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (ftruncate(file, sizeof(CallCounter)) == 0) {
        void *memory
            = mmap(nullptr, sizeof(CallCounter), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (memory != MAP_FAILED)
            m_counter = static_cast<CallCounter *>(memory);
    }
    close(file);
}

Sweep::~Sweep()
{
    if (m_counter)
        munmap(m_counter, sizeof(CallCounter));
}

Sweep::Counted::Counted(const Sweep &sweep)
{
    qputenv("KVX_CALL_COUNTER", QFile::encodeName(sweep.m_file));
    qputenv("LD_PRELOAD", KVX_OUTSIDE_CALLS);
}

Sweep::Counted::~Counted()
{
    qunsetenv("LD_PRELOAD");
    qunsetenv("KVX_CALL_COUNTER");
}

void Sweep::Run::begin() const
{
    counter.calls = 0;
    counter.struck = 0;
    counter.failAt = failAt;
    counter.flavour = flavour;
    counter.span = span;
    counter.scope = scope;
    counter.armed = 1;
}

bool Sweep::Run::end() const
{
    counter.armed = 0;
    return counter.struck != 0;
}

void Sweep::over(const QString &name, CallCounter::Scope scope, int selected,
    const std::function<void(const Run &)> &operation)
{
    ASSERT_TRUE(m_counter);
    over(*m_counter, name, scope, selected, operation);
}

void Sweep::over(CallCounter &counter, const QString &name, CallCounter::Scope scope, int selected,
    const std::function<void(const Run &)> &operation)
{
    const bool all = qEnvironmentVariableIsSet("KVX_TEST_LONG");
    const long step = all ? 1 : selected;
    QElapsedTimer timer;
    timer.start();
    long points = 0;
    long calls = 0;
    for (int pass = 0; pass < (all ? 2 * flavours : 2); ++pass) {
        const auto span = pass % 2 == 0 ? CallCounter::OneCall : CallCounter::FromThereOn;
        const long before = points;
        // The selections take turns.
        for (long failAt = 1 + pass % step;; failAt += step) {
            ASSERT_LT(failAt, farTooMany) << "no run of " << name.toStdString() << " comes clean";
            const int flavour
                = all ? pass / 2 : static_cast<int>((failAt / step + pass) % flavours);
            const Run run { counter, failAt, span, scope, flavour };
            std::memset(counter.what, 0, sizeof counter.what);
            operation(run);
            run.end();
            if (testing::Test::HasFailure()) {
                std::printf("%s, call %ld, %s, %s\n", qUtf8Printable(name), failAt,
                    span == CallCounter::OneCall ? "once" : "from there on", counter.what);
                return;
            }
            if (counter.struck == 0) {
                calls = counter.calls;
                break;
            }
            ++points;
        }
        EXPECT_GT(points, before) << "no call of " << name.toStdString() << " was made to fail";
    }
    std::printf("%s: %ld calls, %ld failures, %lld ms\n", qUtf8Printable(name), calls, points,
        static_cast<long long>(timer.elapsed()));
}

} // namespace kvx::test
