#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace kvx::server {

/// A running digest of bytes as they pass.
class Digest {
public:
    enum class Kind { Sha256, Md5 };
    explicit Digest(Kind kind);
    ~Digest();
    Digest(Digest &&) noexcept;
    Digest &operator=(Digest &&) noexcept;

    void add(std::string_view bytes);
    /// Lower-case hexadecimal digits; ends the digest.
    std::string finish();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// Lower-case hexadecimal SHA-256.
std::string sha256(std::string_view bytes);

/// Lower-case hexadecimal MD5: a check against damage, never against forgery.
std::string md5(std::string_view bytes);

} // namespace kvx::server
