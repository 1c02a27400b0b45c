#pragma once

#include "NetworkTest.h"

#include <QCryptographicHash>

namespace kvx::test {

/// Bytes that do not repeat.
QByteArray someBytes(int size);
/// The header that names the SHA-256 of these bytes.
std::string digestHeader(const QByteArray &bytes);
/// The content of one part of a multipart body.
std::string partOf(const std::string &body, const std::string &name);

class NetworkFiles : public NetworkTest {
protected:
    bool upload(const QString &file, Progress *progress = nullptr)
    {
        return network->post(url(),
            { { "service", "upload" }, { "FileName", "{g}_log1" }, { "LocalFileName", file } },
            reply, progress, progress ? &Progress::add : nullptr);
    }
    bool download(Progress *progress = nullptr)
    {
        return network->post(url(),
            { { "service", "download" }, { "FileName", "{g}.KVX" },
                { "LocalFileName", path("target") } },
            reply, progress, progress ? &Progress::add : nullptr);
    }
    void serveFile(const QByteArray &bytes, const std::string &headers = "",
        const std::string &jsonReply = R"({"statuscode":1,"LogVersion":7})")
    {
        server.handle("/kvx/service",
            LoopbackServer::answer(
                bytes.toStdString(), 200, "Kvx-Reply: " + jsonReply + "\r\n" + headers));
    }
    void expectNothingStored()
    {
        EXPECT_FALSE(QFile::exists(path("target")));
        EXPECT_TRUE(filesInFolder().isEmpty()) << filesInFolder().join(' ').toStdString();
    }
};

} // namespace kvx::test
