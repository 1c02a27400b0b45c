#pragma once

#include <QString>
#include <exception>
#include <optional>

namespace kvx {

/// Runs one step of a slot. Nothing that a receiver or the host's code throws in it may reach the
/// event loop: the text of the exception ("unknown" where it has none), for the log; empty when the
/// step went through. The object whose slot it is may be gone on return.
template <class Step> std::optional<QString> thrownBy(const Step &step)
{
    try {
        step();
    } catch (const std::exception &error) {
        return QString::fromLocal8Bit(error.what());
    } catch (...) {
        return QStringLiteral("unknown");
    }
    return std::nullopt;
}

} // namespace kvx
