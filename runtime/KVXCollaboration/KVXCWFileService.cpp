#include <KVXCollaboration/KVXCWFileService.h>

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>

// Read in blocks, not mapped: a file that is cut short meanwhile is then an error, not a crash.
QString KVXCWFileService::md5(const QString &fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return {};
    constexpr int blockSize = 1024 * 1024;
    QByteArray block(blockSize, Qt::Uninitialized);
    QCryptographicHash hash(QCryptographicHash::Md5);
    for (;;) {
        const qint64 count = file.read(block.data(), blockSize);
        if (count < 0)
            return {};
        if (count == 0)
            return QString::fromLatin1(hash.result().toHex());
        hash.addData(block.constData(), static_cast<int>(count));
    }
}
