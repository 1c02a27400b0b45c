#include "cli/Interrupt.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace kvx::cli {

namespace {

int wakeUp[2] = { -1, -1 };
volatile std::sig_atomic_t interrupted = 0;

void onSignal(int number)
{
    if (interrupted) {
        std::signal(number, SIG_DFL);
        raise(number);
        return;
    }
    interrupted = 1;
    const char byte = 0;
    const ssize_t written = write(wakeUp[1], &byte, 1);
    static_cast<void>(written); // a full pipe has woken the loop already
}

} // namespace

Interrupt::Interrupt()
{
    if (pipe2(wakeUp, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    auto *notifier = new QSocketNotifier(wakeUp[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [notifier] {
        notifier->setEnabled(false);
        QCoreApplication::quit();
    });
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
}

} // namespace kvx::cli
