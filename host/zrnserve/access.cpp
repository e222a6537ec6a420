#include "zrnserve/access.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sys/stat.h>

namespace zrnserve
{
namespace
{

void requireSecret(const std::string& path)
{
    struct stat status {
    };
    if (::stat(path.c_str(), &status) != 0) {
        throw WrongOptions(path + ": " + std::strerror(errno));
    }
    if (status.st_mode & (S_IROTH | S_IWOTH)) {
        throw WrongOptions(path + " is open to everybody on this machine: chmod o= " + path);
    }
}

std::map<std::string, std::string> readPasswords(const std::string& path)
{
    requireSecret(path);
    std::ifstream file(path);
    if (!file) {
        throw WrongOptions(path + ": " + std::strerror(errno));
    }
    std::map<std::string, std::string> passwords;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty()) {
            continue;
        }
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos || colon == 0 || colon + 1 == line.size()) {
            throw WrongOptions(path + ", line " + std::to_string(number) +
                               ": expected USER:PASSWORD");
        }
        passwords[line.substr(0, colon)] = line.substr(colon + 1);
    }
    if (passwords.empty()) {
        throw WrongOptions(path + " names no user: write USER:PASSWORD into it");
    }
    return passwords;
}

/// The first line.
std::string readPassphrase(const std::string& path)
{
    // What SRT takes.
    constexpr std::size_t shortest = 10;
    constexpr std::size_t longest = 79;
    requireSecret(path);
    std::ifstream file(path);
    if (!file) {
        throw WrongOptions(path + ": " + std::strerror(errno));
    }
    std::string passphrase;
    if (!std::getline(file, passphrase)) {
        throw WrongOptions(path + " holds no passphrase");
    }
    if (!passphrase.empty() && passphrase.back() == '\r') {
        passphrase.pop_back();
    }
    if (passphrase.size() < shortest || passphrase.size() > longest) {
        throw WrongOptions(path + ": a passphrase has " + std::to_string(shortest) + " to " +
                           std::to_string(longest) + " characters");
    }
    return passphrase;
}

GTlsCertificate* readCertificate(const AccessOptions& options)
{
    if (!g_tls_backend_supports_tls(g_tls_backend_get_default())) {
        throw WrongOptions("GLib has no TLS here: install glib-networking");
    }
    const std::string& key = options.keyFile.empty() ? options.certificateFile : options.keyFile;
    requireSecret(key);
    g_autoptr(GError) error = nullptr;
    GTlsCertificate* certificate =
        g_tls_certificate_new_from_files(options.certificateFile.c_str(), key.c_str(), &error);
    if (!certificate) {
        throw WrongOptions(options.certificateFile + ": " + error->message);
    }
    return certificate;
}

/// Takes the same time for every password of that length.
bool isSame(const std::string& left, const std::string& right)
{
    unsigned difference = unsigned{left.size() != right.size()};
    for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
        difference |= unsigned{left[i] != right[i]};
    }
    return difference == 0;
}

} // namespace

Access::Access(const AccessOptions& options)
    : m_address(options.address == "localhost" ? "127.0.0.1" : options.address)
{
    g_autoptr(GInetAddress) address = g_inet_address_new_from_string(m_address.c_str());
    if (!address) {
        throw WrongOptions("--listen " + m_address + ": expected an address, as 192.168.1.5");
    }
    if (!g_inet_address_get_is_loopback(address) &&
        (options.usersFile.empty() || options.certificateFile.empty())) {
        throw WrongOptions(m_address + " is reached from other machines: that needs "
                                       "--users FILE and --certificate FILE");
    }
    if (g_inet_address_get_is_loopback(address) && options.mustBeReached) {
        throw WrongOptions("--announce: no other machine reaches " + m_address +
                           ", which needs --listen");
    }
    if (!g_inet_address_get_is_loopback(address) && options.offersSrt &&
        options.passphraseFile.empty()) {
        throw WrongOptions(m_address + " is reached from other machines: --srt needs "
                                       "--srt-passphrase-file FILE");
    }
    if (!options.passphraseFile.empty() && !options.offersSrt) {
        throw WrongOptions("--srt-passphrase-file needs --srt");
    }
    if (!options.keyFile.empty() && options.certificateFile.empty()) {
        throw WrongOptions("--key needs --certificate");
    }
    if (!options.usersFile.empty()) {
        m_passwords = readPasswords(options.usersFile);
    }
    if (!options.certificateFile.empty()) {
        m_certificate.reset(readCertificate(options));
    }
    if (!options.passphraseFile.empty()) {
        m_passphrase = readPassphrase(options.passphraseFile);
    }
}

bool Access::admits(const std::string& user, const std::string& password) const
{
    const auto known = m_passwords.find(user);
    return known != m_passwords.end() && isSame(known->second, password);
}

} // namespace zrnserve
