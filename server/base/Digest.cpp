#include "base/Digest.h"
#include "base/Text.h"

#include <openssl/evp.h>
#include <stdexcept>

namespace kvx::server {

struct Digest::State {
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    ~State() { EVP_MD_CTX_free(context); }
};

Digest::Digest(Kind kind)
    : m_state(std::make_unique<State>())
{
    if (EVP_DigestInit_ex(
            m_state->context, kind == Kind::Sha256 ? EVP_sha256() : EVP_md5(), nullptr)
        != 1)
        throw std::runtime_error("the digest cannot be started");
}

Digest::~Digest() = default;
Digest::Digest(Digest &&) noexcept = default;
Digest &Digest::operator=(Digest &&) noexcept = default;

void Digest::add(std::string_view bytes)
{
    if (EVP_DigestUpdate(m_state->context, bytes.data(), bytes.size()) != 1)
        throw std::runtime_error("the digest cannot be continued");
}

std::string Digest::finish()
{
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned int count = 0;
    if (EVP_DigestFinal_ex(m_state->context, bytes, &count) != 1)
        throw std::runtime_error("the digest cannot be finished");
    return hex(bytes, count);
}

std::string sha256(std::string_view bytes)
{
    Digest digest(Digest::Kind::Sha256);
    digest.add(bytes);
    return digest.finish();
}

std::string md5(std::string_view bytes)
{
    Digest digest(Digest::Kind::Md5);
    digest.add(bytes);
    return digest.finish();
}

} // namespace kvx::server
