#pragma once

/// Kinds of projects; each travels as its name ("Estimate", "Tender", …).
enum TProjectsType { Estimate = 0, Tender = 1, Addendum = 2, BQLibrary = 3, ResourceLibrary = 4 };
