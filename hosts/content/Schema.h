#pragma once

#include <QString>

namespace kvx::content {

/// Kinds of rows that are checked out on their own.
enum Module { ItemModule = 1, ChapterModule = 2, ResourceModule = 3 };

/// The tables of a project: chapters, items, resources and rate build-ups. Quantities, rates and
/// prices are whole thousandths; amounts and totals are computed, never stored. Row numbers come
/// from the project's number ranges and are unique over all tables.
QString projectSchema();

} // namespace kvx::content
