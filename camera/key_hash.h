#pragma once

#include <cstdint>
#include <string>

class QString;

/// 64-bit hash of a key's bytes.
///
/// FNV-1 in its order of steps, but with the 32-bit offset basis and prime in 64-bit arithmetic,
/// and each byte sign-extended. Hosts and drivers share its values, so the arithmetic must stay as
/// it is.
std::uint64_t hash_string(const std::string& key);

/// Hash of a host's key text: its Latin-1 bytes ("?" for characters outside) up to the first NUL.
std::uint64_t keyHash(const QString& key);
