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
    if (!options.keyFile.empty() && options.certificateFile.empty()) {
        throw WrongOptions("--key needs --certificate");
    }
    if (!options.usersFile.empty()) {
        m_passwords = readPasswords(options.usersFile);
    }
    if (!options.certificateFile.empty()) {
        m_certificate.reset(readCertificate(options));
    }
}

bool Access::admits(const std::string& user, const std::string& password) const
{
    const auto known = m_passwords.find(user);
    return known != m_passwords.end() && isSame(known->second, password);
}

} // namespace zrnserve
