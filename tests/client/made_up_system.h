#pragma once

#include <filesystem>
#include <string>

/// A folder with a /sys, a /dev and a /proc of its own.
class MadeUpSystem
{
public:
    MadeUpSystem();
    ~MadeUpSystem();
    MadeUpSystem(const MadeUpSystem&) = delete;
    MadeUpSystem& operator=(const MadeUpSystem&) = delete;

    std::string root() const { return m_root.string(); }

    void write(const std::string& path, const std::string& content);
    void remove(const std::string& path);

    /// A USB device with its node and two interfaces that no driver is bound to.
    void plug(const std::string& port, int address, const std::string& vendor = "0483",
              const std::string& product = "5750");
    void bind(const std::string& port, int interface, const std::string& driver);
    /// A process that has files open.
    void run(int pid, const std::string& program, const std::string& openFile);

private:
    std::filesystem::path m_root;
};
