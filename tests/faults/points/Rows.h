#pragma once

#include <QString>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

namespace kvx::test {

/// What the server has published when the step did not go through.
enum class Then { Unchanged, Published };

/// What a row does with its point.
enum class Deed { Kill, Error, Delay };

/// A step, what leads to it, and what must be true after it failed.
template <class Scene> struct Row {
    const char *point;
    int passing;
    Scene scene;
    Then then;
    Deed deed = Deed::Kill;

    QString action() const
    {
        static const char *const actions[] = { "kill", "error", "delay:60" };
        return QLatin1String(actions[static_cast<int>(deed)]);
    }
    /// As it is armed, and as it is noted when it acts.
    QString armed() const { return noted() + QLatin1Char('@') + QString::number(passing); }
    QString noted() const { return QLatin1String(point) + QLatin1Char('=') + action(); }
};

template <class Scene> void PrintTo(const Row<Scene> &row, std::ostream *stream)
{
    *stream << row.armed().toStdString();
}

/// "SaveLogUploaded_Kill": the point's words and passing, then the deed.
template <class Scene> std::string rowName(const Row<Scene> &row)
{
    static const char *const deeds[] = { "Kill", "Error", "Delay" };
    std::string name;
    bool upper = true;
    for (const char *c = row.point; *c; ++c) {
        if (!std::isalnum(static_cast<unsigned char>(*c))) {
            upper = true;
            continue;
        }
        name += static_cast<char>(upper ? std::toupper(*c) : *c);
        upper = false;
    }
    if (row.passing > 1)
        name += "No" + std::to_string(row.passing);
    return name + '_' + deeds[static_cast<int>(row.deed)];
}

/// Every step killed; failed and held up too, each third of them unless KVX_TEST_LONG is set.
template <class Scene> std::vector<Row<Scene>> allRows(const std::vector<Row<Scene>> &steps)
{
    const bool isLong = std::getenv("KVX_TEST_LONG") != nullptr;
    std::vector<Row<Scene>> rows = steps;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        for (const Deed deed : { Deed::Error, Deed::Delay }) {
            if (!isLong && i % 3 != (deed == Deed::Error ? 0 : 1))
                continue;
            rows.push_back(steps[i]);
            rows.back().deed = deed;
        }
    }
    return rows;
}

} // namespace kvx::test
