#include "NetworkFiles.h"

namespace kvx::test {

QByteArray someBytes(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 2654435761U) >> 13);
    return bytes;
}

std::string digestHeader(const QByteArray &bytes)
{
    return "Repr-Digest: sha-256=:"
        + QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toBase64().toStdString()
        + ":\r\n";
}

std::string partOf(const std::string &body, const std::string &name)
{
    const auto head = body.find("name=\"" + name + "\"");
    if (head == std::string::npos)
        return "no part " + name;
    const auto begin = body.find("\r\n\r\n", head) + 4;
    return body.substr(begin, body.find("\r\n--", begin) - begin);
}

} // namespace kvx::test
