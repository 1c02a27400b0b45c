#pragma once

namespace kvx::bench {

class Report;
class Stand;

// Each measures one kind of work and adds its lines; throws std::runtime_error when the work
// itself fails.
void measureLogin(Stand &stand, Report &report);
void measureRequests(Stand &stand, Report &report);
void measureLockHandOver(Stand &stand, Report &report);
void measureCheckOut(Stand &stand, Report &report);
void measureSave(Stand &stand, Report &report);
void measureCatchUp(Stand &stand, Report &report);
void measureNotify(Stand &stand, Report &report);
void measureProjectList(Stand &stand, Report &report);

} // namespace kvx::bench
