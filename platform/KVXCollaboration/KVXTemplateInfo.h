#pragma once

#include <QString>

/// A report template as the server describes it. Dates and digest are the server's texts.
struct KVXTemplateInfo {
    QString templateID;
    int type = 0;
    QString name;
    QString author;
    QString authorEmail;
    QString projectVersion;
    QString md5;
    QString createDate;
    QString lastModifyDate;
};
