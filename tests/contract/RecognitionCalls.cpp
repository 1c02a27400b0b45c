#include "PluginBench.h"

#include <KVXOCRSDK/KVXOCRClient.h>
#include <QFile>

namespace kvx::test {

namespace {

/// The recognition's client with one job for a local file, and what it tells.
class Recognition {
public:
    /// Arguments: languages, export type, pages.
    explicit Recognition(PluginBench &bench)
        : m_bench(bench)
        , m_client(KVXOCRClient::create())
        , m_file(bench.localFile())
    {
        m_client->setUrl(QStringLiteral("http://127.0.0.1:8090/kvx/ocr"));
        QObject::connect(m_client.get(), &KVXOCRClient::pageOcred,
            [this](const QString &, int page, const QString &text) {
                m_pages.append(QJsonObject {
                    { QStringLiteral("page"), page }, { QStringLiteral("text"), text } });
            });
        QObject::connect(m_client.get(), &KVXOCRClient::error,
            [this](const QString &, int code, const QString &message) {
                m_errors.append(QJsonObject {
                    { QStringLiteral("code"), code }, { QStringLiteral("message"), message } });
                m_over = m_over || code != 683;
            });
        QObject::connect(m_client.get(), &KVXOCRClient::finished, [this] {
            m_finished = true;
            m_over = true;
        });
        bench.begin();
        QStringList languages = bench.arguments.at(0).toVariant().toStringList();
        QList<int> pages = bench.numbers(2);
        const auto type = static_cast<KVXOCRParam::OCRExportType>(bench.number(1));
        m_client->start({ new KVXOCRParam(languages, type, pages, m_file) });
    }

    bool waitForEnd()
    {
        return waitUntil([this] { return m_over; });
    }

    bool stopWhileItRuns()
    {
        waitUntil([this] { return m_bench.host.network.postCount(QStringLiteral("state")) > 0; });
        return m_client->stop();
    }

    QJsonObject outcome() const
    {
        QJsonObject told { { QStringLiteral("pages"), m_pages },
            { QStringLiteral("finished"), m_finished }, { QStringLiteral("errors"), m_errors } };
        QFile document(KVXOCRParam::searchablePdfPath(m_file));
        if (document.open(QIODevice::ReadOnly))
            told.insert(QStringLiteral("document"), QString::fromUtf8(document.readAll()));
        return told;
    }

private:
    PluginBench &m_bench;
    const std::unique_ptr<KVXOCRClient> m_client;
    const QString m_file;
    QJsonArray m_pages;
    QJsonArray m_errors;
    bool m_finished = false;
    bool m_over = false;
};

QJsonValue recognise(PluginBench &bench)
{
    Recognition recognition(bench);
    const bool ended = recognition.waitForEnd();
    QJsonObject told = recognition.outcome();
    if (!ended)
        told.insert(QStringLiteral("ended"), false);
    return told;
}

QJsonValue stopRecognition(PluginBench &bench)
{
    Recognition recognition(bench);
    const bool stopped = recognition.stopWhileItRuns();
    QJsonObject told = recognition.outcome();
    told.insert(QStringLiteral("returned"), stopped);
    return told;
}

} // namespace

const Operations &recognitionOperations()
{
    static const Operations all { { QStringLiteral("recognise"), recognise },
        { QStringLiteral("stopRecognition"), stopRecognition } };
    return all;
}

} // namespace kvx::test
