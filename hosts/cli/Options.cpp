#include "cli/Options.h"

#include <KVXNetwork/KVXNetworkProxy.h>
#include <QCoreApplication>
#include <QFile>
#include <QStandardPaths>
#include <QUrl>
#include <cstdio>
#include <iostream>
#include <termios.h>
#include <unistd.h>

namespace kvx::cli {

namespace {

QString passwordFromTerminal(const QString &user)
{
    std::fprintf(stderr, "Password of %s: ", qUtf8Printable(user));
    termios before = {};
    tcgetattr(STDIN_FILENO, &before);
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    std::string line;
    std::getline(std::cin, line);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
    std::fputc('\n', stderr);
    return QString::fromStdString(line);
}

bool readPassword(const Options &options, host::ClientOptions &client, QString &error)
{
    if (!options.passwordFile.empty()) {
        QFile file(QString::fromStdString(options.passwordFile));
        if (!file.open(QIODevice::ReadOnly)) {
            error = QStringLiteral("%1: %2").arg(file.fileName(), file.errorString());
            return false;
        }
        client.password = QString::fromUtf8(file.readLine()).remove(QLatin1Char('\n'));
    } else if (isatty(STDIN_FILENO)) {
        client.password = passwordFromTerminal(client.email);
    } else {
        std::string line;
        std::getline(std::cin, line);
        client.password = QString::fromStdString(line);
    }
    return true;
}

bool readProxy(const std::string &proxy, host::ClientOptions &client, QString &error)
{
    if (proxy.empty())
        return true;
    const QUrl url(QString::fromStdString(proxy));
    if (url.scheme() == QLatin1String("http"))
        client.proxyType = KVXNetworkProxy::HttpProxy;
    else if (url.scheme() == QLatin1String("socks5"))
        client.proxyType = KVXNetworkProxy::Socks5Proxy;
    if (client.proxyType == 0 || url.host().isEmpty() || url.port() <= 0) {
        error = QStringLiteral(
            "\"%1\" is not a proxy of the form http://host:port or socks5://host:port.")
                    .arg(QString::fromStdString(proxy));
        return false;
    }
    client.proxyHost = url.host();
    client.proxyPort = url.port();
    client.proxyUser = url.userName();
    client.proxyPassword = url.password();
    return true;
}

/// Beside the program in the build tree, or in the library folder of an installation.
QString defaultPlugin()
{
    const QString here = QCoreApplication::applicationDirPath();
    const QString name = QStringLiteral("/libKVXNetCollaboration.so");
    for (const char *folder : { "/../plugin", "/" KVX_LIBRARY_FOLDER }) {
        const QString path = here + QLatin1String(folder) + name;
        if (QFile::exists(path))
            return path;
    }
    return QString();
}

} // namespace

void addOptions(CLI::App &app, Options &options)
{
    app.add_option("-s,--server", options.server, "Server as host:port")->envname("KVX_SERVER");
    app.add_option("-u,--user", options.user, "Your e-mail")->envname("KVX_USER");
    app.add_option("--password-file", options.passwordFile, "File whose first line is the password")
        ->envname("KVX_PASSWORD_FILE");
    app.add_option("--plugin", options.plugin, "Path of the plug-in library")
        ->envname("KVX_PLUGIN");
    app.add_option("--home", options.home, "Folder of the local copies")->envname("KVX_HOME");
    app.add_option("--proxy", options.proxy, "http://[user:password@]host:port or socks5://…")
        ->envname("KVX_PROXY");
    app.add_option("--log", options.log, "Write a log to this file")->envname("KVX_LOG");
    app.add_flag("--json", options.json, "One JSON object a line, for programs");
}

bool clientOptions(const Options &options, host::ClientOptions &client, QString &error)
{
    const QString server = QString::fromStdString(options.server);
    const int colon = server.lastIndexOf(QLatin1Char(':'));
    bool number = false;
    const int port = server.mid(colon + 1).toInt(&number);
    if (colon < 1 || !number || port < 1 || port > 65535) {
        error = QStringLiteral("\"%1\" is not a server of the form host:port.").arg(server);
        return false;
    }
    client.host = server.left(colon);
    client.port = QString::number(port);
    client.email = QString::fromStdString(options.user);
    if (client.email.isEmpty()) {
        error = QStringLiteral("Who are you? Give --user or KVX_USER.");
        return false;
    }
    client.plugin
        = options.plugin.empty() ? defaultPlugin() : QString::fromStdString(options.plugin);
    if (client.plugin.isEmpty()) {
        error = QStringLiteral("The plug-in library was not found; give --plugin.");
        return false;
    }
    client.home = options.home.empty()
        ? QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
            + QLatin1String("/kvx")
        : QString::fromStdString(options.home);
    return readProxy(options.proxy, client, error) && readPassword(options, client, error);
}

} // namespace kvx::cli
