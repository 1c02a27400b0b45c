#include "PluginBench.h"

#include <KVXCommon/IKVXSimpleTable.h>
#include <QFile>

namespace kvx::test {

namespace {

/// With what the manager says about a refusal.
template <class Manager> QJsonObject withError(const Manager &manager, QJsonObject result)
{
    if (manager.errorCode() != 0) {
        result.insert(QStringLiteral("code"), manager.errorCode());
        result.insert(QStringLiteral("text"), manager.errorText());
    }
    return result;
}

QJsonObject infoObject(const KVXTemplateInfo &info)
{
    return { { QStringLiteral("templateID"), info.templateID },
        { QStringLiteral("type"), info.type }, { QStringLiteral("name"), info.name },
        { QStringLiteral("author"), info.author },
        { QStringLiteral("authorEmail"), info.authorEmail },
        { QStringLiteral("projectVersion"), info.projectVersion },
        { QStringLiteral("md5"), info.md5 }, { QStringLiteral("createDate"), info.createDate },
        { QStringLiteral("lastModifyDate"), info.lastModifyDate } };
}

/// Arguments: what is known of the template, its content.
QJsonValue uploadTemplate(PluginBench &bench)
{
    const QJsonObject known = bench.arguments.at(0).toObject();
    KVXTemplateInfo info;
    info.name = known.value(QLatin1String("name")).toString();
    info.type = known.value(QLatin1String("type")).toInt();
    info.projectVersion = known.value(QLatin1String("projectVersion")).toString();
    info.author = known.value(QLatin1String("author")).toString();
    info.authorEmail = known.value(QLatin1String("authorEmail")).toString();
    KVXReportTemplateMgrImpl &templates = bench.templates();
    const bool done = templates.uploadTemplate(info, bench.arguments.at(1).toObject());
    return withError(templates,
        { { QStringLiteral("returned"), done }, { QStringLiteral("info"), infoObject(info) } });
}

QJsonValue downloadTemplate(PluginBench &bench)
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    QJsonObject content;
    const bool done = templates.downloadTemplate(bench.text(0), content);
    return withError(templates,
        { { QStringLiteral("returned"), done }, { QStringLiteral("content"), content } });
}

QJsonValue queryTemplates(PluginBench &bench)
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    QList<KVXTemplateInfo> infos;
    const bool done = templates.queryTemplates(infos);
    QJsonArray list;
    for (const KVXTemplateInfo &info : infos)
        list.append(infoObject(info));
    return withError(
        templates, { { QStringLiteral("returned"), done }, { QStringLiteral("list"), list } });
}

/// One identifier, or a list of them.
QJsonValue deleteTemplates(PluginBench &bench)
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    const QJsonValue ids = bench.arguments.at(0);
    QStringList list;
    for (const QJsonValue &id : ids.toArray())
        list.append(id.toString());
    const bool done = ids.isArray() ? templates.deleteTemplates(list)
                                    : templates.deleteTemplate(ids.toString());
    return withError(templates, { { QStringLiteral("returned"), done } });
}

QJsonValue renameTemplate(PluginBench &bench)
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    const bool done = templates.renameTemplate(bench.text(0), bench.text(1));
    return withError(templates, { { QStringLiteral("returned"), done } });
}

QJsonValue findTemplate(PluginBench &bench,
    bool (KVXReportTemplateMgr::*find)(const QString &, bool &, KVXTemplateInfo &))
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    bool exists = false;
    KVXTemplateInfo info;
    const bool done = (templates.*find)(bench.text(0), exists, info);
    return withError(templates,
        { { QStringLiteral("returned"), done }, { QStringLiteral("exists"), exists },
            { QStringLiteral("info"), infoObject(info) } });
}

/// Arguments: type, minutes, whether bound to the login, author's name and e-mail.
QJsonValue globalLock(PluginBench &bench)
{
    KVXGlobalLockMgrImpl &locks = bench.globalLocks();
    QString holder;
    QString email;
    const bool done = locks.GlobalLock(bench.number(0), holder, email, bench.number(1),
        bench.flag(2), bench.text(3), bench.text(4));
    return withError(locks,
        { { QStringLiteral("returned"), done }, { QStringLiteral("holder"), holder },
            { QStringLiteral("holderEmail"), email } });
}

QJsonValue globalUnlock(PluginBench &bench)
{
    KVXGlobalLockMgrImpl &locks = bench.globalLocks();
    const bool done = locks.GlobalUnlock(bench.number(0));
    return withError(locks, { { QStringLiteral("returned"), done } });
}

/// Arguments: the user, the table's name; null for none.
QJsonValue getTable(PluginBench &bench)
{
    const IKVXSimpleTable *table = bench.common().getTable(bench.text(1));
    return table ? QJsonValue(table->toJson()) : QJsonValue();
}

/// Arguments: the user, the table in its own form.
QJsonValue updateTable(PluginBench &bench)
{
    std::unique_ptr<IKVXSimpleTable> table(
        IKVXSimpleTable::fromJson(bench.arguments.at(1).toObject()));
    if (!bench.common().updateTable(table.get()))
        return false;
    table.release();
    return true;
}

/// Arguments: the user, the seconds before each tick.
QJsonValue tickAfter(PluginBench &bench)
{
    KVXCWCommonImpl &common = bench.common();
    for (const int seconds : bench.numbers(1)) {
        bench.now = bench.now.addSecs(seconds);
        common.tick();
    }
    return {};
}

/// Arguments: host, port.
QJsonValue resourceVersion(PluginBench &bench)
{
    QString version;
    const bool done = bench.common().resourceVersion(bench.text(0), bench.number(1), version);
    return QJsonObject { { QStringLiteral("returned"), done },
        { QStringLiteral("version"), version } };
}

/// Arguments: host, port.
QJsonValue downloadResource(PluginBench &bench)
{
    const QString path = bench.localFile() + QLatin1String(".package");
    QJsonObject result { { QStringLiteral("returned"),
        bench.common().downloadResource(path, bench.text(0), bench.number(1)) } };
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        result.insert(QStringLiteral("content"), QString::fromUtf8(file.readAll()));
    return result;
}

} // namespace

const Operations &resourceOperations()
{
    using B = PluginBench;
    static const Operations all {
        { QStringLiteral("uploadTemplate"), uploadTemplate },
        { QStringLiteral("downloadTemplate"), downloadTemplate },
        { QStringLiteral("queryTemplates"), queryTemplates },
        { QStringLiteral("deleteTemplates"), deleteTemplates },
        { QStringLiteral("deleteTemplate"), deleteTemplates },
        { QStringLiteral("renameTemplate"), renameTemplate },
        { QStringLiteral("templateExist"),
            [](B &b) { return findTemplate(b, &KVXReportTemplateMgr::templateExist); } },
        { QStringLiteral("templateExistByID"),
            [](B &b) { return findTemplate(b, &KVXReportTemplateMgr::templateExistByID); } },
        { QStringLiteral("globalLock"), globalLock },
        { QStringLiteral("globalUnlock"), globalUnlock },
        { QStringLiteral("getTable"), getTable },
        { QStringLiteral("updateTable"), updateTable },
        { QStringLiteral("tickAfter"), tickAfter },
        { QStringLiteral("resourceVersion"), resourceVersion },
        { QStringLiteral("downloadResource"), downloadResource },
    };
    return all;
}

} // namespace kvx::test
