#pragma once

#include <QString>
#include <functional>
#include <vector>

namespace kvx::bench {

/// One line of the table. Without a floor (0) there is no ratio.
struct Row {
    QString name;
    double floor = 0;
    double ours = 0;
    QString goal;
    bool met = true;
    QString unit = QStringLiteral("ms");

    double ratio() const { return floor > 0 ? ours / floor : 0; }
};

/// The figures of one run. A workload adds its lines as soon as they stand, so that a long run
/// shows what it has got so far.
class Report {
public:
    explicit Report(bool json)
        : m_json(json)
    {
    }

    /// Machine, load and heading.
    void begin() const;
    void add(const Row &row);
    /// Goal: at most so many times the floor.
    void addRatio(const QString &name, double floor, double ours, double limit);
    /// A word on the figures that follow; not in JSON.
    void note(const QString &text) const;
    /// The closing line.
    void end() const;

private:
    bool m_json;
    std::vector<Row> m_rows;
};

double median(std::vector<double> values);
/// The smallest value that `percent` of the values do not exceed.
double percentile(std::vector<double> values, double percent);
/// How long it took.
double milliseconds(const std::function<void()> &work);

} // namespace kvx::bench
