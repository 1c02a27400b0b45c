#pragma once

#include <QString>

class KVXProjectDatabase;

namespace kvx::bench {

/// How big a bill of quantities is; the content follows from it alone.
struct TenderSize {
    const char *name;
    int items;
    int resources;
    int buildUps; ///< rows of an item's rate build-up
    int words; ///< of an item's long text, on average
};

constexpr TenderSize bareTender { "bare", 1'000, 0, 0, 0 };
constexpr TenderSize smallTender { "S", 2'000, 800, 6, 110 };
constexpr TenderSize mediumTender { "M", 50'000, 3'000, 5, 60 };
constexpr TenderSize largeTender { "L", 300'000, 10'000, 5, 60 };

/// Writes a project file with chapters, items with long texts, resources and rate build-ups, and
/// seals it as a base. Items have the row numbers from 1. Throws std::runtime_error.
void writeTender(const QString &path, const QString &guid, const TenderSize &size);

/// Prices a run of neighbouring items anew, in one edit. The round makes the values differ from
/// those of the round before. Throws std::runtime_error.
void changeRows(KVXProjectDatabase &database, int firstItem, int rows, int round);

} // namespace kvx::bench
