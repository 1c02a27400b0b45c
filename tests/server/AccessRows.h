#pragma once

#include "AccessModel.h"

namespace kvx::test {

using Rows = std::vector<Expectation>;
using Make = std::function<Message(const World &, Caller, Object)>;
using Judge = std::function<Outcome(const Person &, Object)>;

// The rows, a family of services each.
void addAccounts(Rows &rows);
void addProjects(Rows &rows);
void addGroups(Rows &rows);
void addSaving(Rows &rows);
void addFiles(Rows &rows);
void addItems(Rows &rows);
void addTemplates(Rows &rows);
void addShared(Rows &rows);
void addRecognition(Rows &rows);

// What several families need: judges, then requests.

inline const Outcome unchanged { 1, false };

/// Who may not read a project does not learn whether it is there.
Judge needs(Level level, Outcome granted = {});
Judge always(Outcome outcome = {});
/// A thing that belongs to the creator, to a stranger, or is not there.
Judge ownersAndAdministrators(int missing, int refused = 300);
Judge thereOrNot(int missing);
/// To create a thing of the kind that `kindFor` names.
Outcome mayCreate(const Person &who, Object object);

/// What one may create with a role, what with a right, and what nobody can.
const char *kindFor(Object object);
Make just(const char *service);
Message about(const char *service, const World &world, Object object);
Make onProject(const char *service);

} // namespace kvx::test
