#pragma once

#include <QObject>

namespace kvx::cli {

/// Ctrl-C and termination end the application's loop, so that the session is closed in order.
/// The second one ends the process at once.
class Interrupt : public QObject {
    Q_OBJECT
public:
    Interrupt();
};

} // namespace kvx::cli
