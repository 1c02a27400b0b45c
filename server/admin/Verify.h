#pragma once

namespace kvx::server {

struct Config;

/// Judges database and store; the exit code. With `deep` every content is read.
int verify(const Config &config, bool deep, bool json);

} // namespace kvx::server
