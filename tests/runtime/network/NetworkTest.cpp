#include "NetworkTest.h"

#include <QDir>

namespace kvx::test {

NetworkTest::NetworkTest()
{
    network->setProxy(KVXNetworkProxy());
    network->setTimeouts({});
    network->clearSession();
    server.handle("/kvx/service", LoopbackServer::answer(R"({"statuscode":1})"));
}

NetworkTest::~NetworkTest()
{
    network->clearSession();
}

QString NetworkTest::url(const std::string &path) const
{
    return QString::fromStdString(server.url(path));
}

bool NetworkTest::post(const char *service)
{
    return network->post(
        url(), { { QStringLiteral("service"), QLatin1String(service) } }, reply, nullptr, nullptr);
}

QJsonObject NetworkTest::sentJson() const
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(server.lastRequest().body)).object();
}

QString NetworkTest::writeFile(const QString &name, const QByteArray &bytes) const
{
    QFile file(path(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(file.write(bytes), bytes.size());
    return file.fileName();
}

QByteArray NetworkTest::readFile(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return file.readAll();
}

QStringList NetworkTest::filesInFolder() const
{
    return QDir(m_folder.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

void Progress::add(void *receiver, qint64 done, qint64 total)
{
    auto *progress = static_cast<Progress *>(receiver);
    progress->reports.append({ done, total });
    progress->thread = std::this_thread::get_id();
}

} // namespace kvx::test
