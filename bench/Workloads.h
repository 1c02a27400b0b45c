#pragma once

class QString;

namespace kvx::bench {

class Report;
class Stand;
struct ChangeLogs;

// Each measures one kind of work and adds its lines; throws std::runtime_error when the work
// itself fails.
void measureLogin(Stand &stand, Report &report);
void measureRequests(Stand &stand, Report &report);
void measureLockHandOver(Stand &stand, Report &report);
void measureCheckOut(Stand &stand, Report &report);
void measureSave(Stand &stand, Report &report);
void measureLargeSave(Stand &stand, Report &report);
void measureCatchUp(Stand &stand, Report &report);
void measureReceive(Stand &stand, Report &report);
void measureNotify(Stand &stand, Report &report);
void measureProjectList(Stand &stand, Report &report);
void measureServerMemory(Stand &stand, Report &report);
void measureRestart(Stand &stand, Report &report);

/// The same work done by other products in this run; nginx is the path of its program.
void measurePeers(Stand &stand, Report &report, const QString &nginx);
void measureRequestsBeside(Stand &stand, Report &report, const QString &nginx);
/// Publishes the logs, of which there is one; the time of a copy at the base to get it.
double measureCatchUpByOne(Stand &stand, const ChangeLogs &logs);

} // namespace kvx::bench
