#include "content/Schema.h"

namespace kvx::content {

QString projectSchema()
{
    return QStringLiteral(R"sql(
CREATE TABLE chapter (
    id INTEGER PRIMARY KEY,
    parent INTEGER,
    position INTEGER NOT NULL,
    number TEXT NOT NULL,
    title TEXT NOT NULL
);
CREATE TABLE item (
    id INTEGER PRIMARY KEY,
    chapter INTEGER,
    position INTEGER NOT NULL,
    number TEXT NOT NULL,
    short_text TEXT NOT NULL,
    long_text TEXT NOT NULL,
    unit TEXT NOT NULL,
    kind TEXT NOT NULL,
    quantity INTEGER NOT NULL,
    rate INTEGER
);
CREATE TABLE resource (
    id INTEGER PRIMARY KEY,
    code TEXT NOT NULL,
    name TEXT NOT NULL,
    unit TEXT NOT NULL,
    price INTEGER NOT NULL
);
CREATE TABLE build_up (
    item INTEGER NOT NULL,
    resource INTEGER NOT NULL,
    quantity INTEGER NOT NULL,
    PRIMARY KEY (item, resource)
);
CREATE INDEX item_by_chapter ON item (chapter, position);
CREATE INDEX item_by_number ON item (number);
)sql");
}

} // namespace kvx::content
