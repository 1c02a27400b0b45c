#include "Report.h"
#include "Stand.h"
#include "Workloads.h"

#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <sodium.h>

namespace kvx::bench {

namespace {

// The server's own setting for new passwords.
constexpr std::size_t memoryCost = 19'456 * 1024;
constexpr unsigned long long passes = 2;

} // namespace

/// The floor is the check of one password with the parameters that the server uses: the part of a
/// login that is slow on purpose.
void measureLogin(Stand &stand, Report &report)
{
    require(sodium_init() >= 0, QStringLiteral("the random source is not usable"));
    const QString text = stand.password();
    const QByteArray password = text.toUtf8();
    const auto size = static_cast<unsigned long long>(password.size());
    char hash[crypto_pwhash_STRBYTES];
    require(crypto_pwhash_str_alg(
                hash, password.constData(), size, passes, memoryCost, crypto_pwhash_ALG_ARGON2ID13)
            == 0,
        QStringLiteral("no memory to hash a password"));

    KVXCWLogin *manager = KVXCollaborator::getInstance()->loginManager();
    Wire wire(stand.site().server());
    std::vector<double> floor;
    std::vector<double> server;
    std::vector<double> plugin;
    for (int i = 0; i < stand.repeats(9); ++i) {
        floor.push_back(milliseconds([&] {
            require(crypto_pwhash_str_verify(hash, password.constData(), size) == 0,
                QStringLiteral("the hash does not match"));
        }));
        server.push_back(milliseconds([&] { wire.login(stand.email(), text); }));
        plugin.push_back(milliseconds([&] {
            require(manager->login(stand.email(), text, QStringLiteral("kvx"), QStringLiteral("1"),
                        QStringLiteral("1"))
                    == KVXOk,
                QStringLiteral("the login was refused"));
        }));
    }
    const QString goal = QStringLiteral("at most 20 ms over the floor");
    const double hashing = median(floor);
    report.add({ QStringLiteral("login, the server's part"), hashing, median(server), goal,
        median(server) <= hashing + 20 });
    report.add({ QStringLiteral("login through the plug-in, with the broker"), hashing,
        median(plugin), goal, median(plugin) <= hashing + 20 });
}

} // namespace kvx::bench
