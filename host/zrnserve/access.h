#pragma once

#include <gio/gio.h>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace zrnserve
{

/// The server was told to do what it must not, or cannot; what() says what to do about it.
class WrongOptions : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct AccessOptions {
    std::string address = "127.0.0.1";
    std::string usersFile;
    std::string certificateFile;
    std::string keyFile;        ///< empty: in the certificate's file
    bool mustBeReached = false; ///< by other machines
    bool offersSrt = false;
    std::string passphraseFile; ///< of SRT
};

/// Who may look, and by what the connections are encrypted.
class Access
{
public:
    /// @throws WrongOptions for an address that others reach without users or without a
    /// certificate, and for files that cannot be used or that everybody may read
    explicit Access(const AccessOptions& options);

    /// A numeric address.
    const std::string& address() const { return m_address; }
    /// By name; empty: everybody may look.
    const std::map<std::string, std::string>& passwords() const { return m_passwords; }
    /// Null: connections are not encrypted.
    GTlsCertificate* certificate() const { return m_certificate.get(); }

    /// Of SRT; empty: it is not encrypted.
    const std::string& passphrase() const { return m_passphrase; }

    bool admits(const std::string& user, const std::string& password) const;

private:
    struct Unref {
        void operator()(void* object) const { g_object_unref(object); }
    };

    std::string m_address;
    std::map<std::string, std::string> m_passwords;
    std::unique_ptr<GTlsCertificate, Unref> m_certificate;
    std::string m_passphrase;
};

} // namespace zrnserve
