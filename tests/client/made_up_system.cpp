#include "made_up_system.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace
{

const std::string devices = "/sys/bus/usb/devices/";

} // namespace

MadeUpSystem::MadeUpSystem()
{
    std::string name = (fs::temp_directory_path() / "zrnclient.XXXXXX").string();
    if (!::mkdtemp(name.data())) {
        throw std::runtime_error("no temporary folder");
    }
    m_root = name;
}

MadeUpSystem::~MadeUpSystem()
{
    std::error_code ignored;
    fs::remove_all(m_root, ignored);
}

void MadeUpSystem::write(const std::string& path, const std::string& content)
{
    const fs::path full = root() + path;
    fs::create_directories(full.parent_path());
    std::ofstream(full, std::ios::binary) << content;
}

void MadeUpSystem::remove(const std::string& path)
{
    fs::remove_all(root() + path);
}

void MadeUpSystem::plug(const std::string& port, int address, const std::string& vendor,
                        const std::string& product)
{
    const std::string folder = devices + port;
    write(folder + "/idVendor", vendor + "\n");
    write(folder + "/idProduct", product + "\n");
    write(folder + "/busnum", port.substr(0, port.find('-')) + "\n");
    write(folder + "/devnum", std::to_string(address) + "\n");
    write(folder + "/speed", "5000\n");
    for (const char* interface : {":1.0", ":1.1"}) {
        write(folder + interface + "/bInterfaceClass", "0e\n");
    }
    std::array<char, 64> node{};
    std::snprintf(node.data(), node.size(), "/dev/bus/usb/%03d/%03d", std::atoi(port.c_str()),
                  address);
    write(node.data(), "");
}

void MadeUpSystem::bind(const std::string& port, int interface, const std::string& driver)
{
    const fs::path entry = root() + devices + port + ":1." + std::to_string(interface);
    fs::create_directories(entry);
    fs::create_symlink("../../../../bus/usb/drivers/" + driver, entry / "driver");
}

void MadeUpSystem::run(int pid, const std::string& program, const std::string& openFile)
{
    const std::string folder = "/proc/" + std::to_string(pid);
    write(folder + "/comm", program + "\n");
    fs::create_directories(root() + folder + "/fd");
    fs::create_symlink(root() + openFile, root() + folder + "/fd/7");
}
