#include "client/holders.h"

#include "client/file_text.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <sys/stat.h>

namespace zrn
{
namespace
{

namespace fs = std::filesystem;

/// One of the nodes that are looked for.
struct Node {
    std::string name; ///< last words of its path, by which most files are passed over
    struct stat status {
    };
};

/// The same node, even if it is reached through another mount.
bool isSame(const struct stat& a, const struct stat& b)
{
    const bool isSameFile = a.st_dev == b.st_dev && a.st_ino == b.st_ino;
    return isSameFile ||
           (S_ISCHR(a.st_mode) && S_ISCHR(b.st_mode) && a.st_rdev != 0 && a.st_rdev == b.st_rdev);
}

bool isOpenFileOf(const fs::path& file, const Node& node)
{
    std::error_code error;
    const std::string target = fs::read_symlink(file, error).string();
    struct stat status {
    };
    return !error && target.ends_with(node.name) && ::stat(file.c_str(), &status) == 0 &&
           isSame(status, node.status);
}

/// Which of the nodes a process has open.
std::vector<bool> openNodesOf(const fs::path& process, const std::vector<Node>& nodes)
{
    std::vector<bool> open(nodes.size(), false);
    std::error_code error;
    for (auto file = fs::directory_iterator(process / "fd", error);
         !error && file != fs::directory_iterator(); file.increment(error)) {
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            open[i] = open[i] || isOpenFileOf(file->path(), nodes[i]);
        }
    }
    return open;
}

} // namespace

std::vector<std::vector<Holder>> findHolders(const std::string& root,
                                             const std::vector<std::string>& nodes)
{
    std::vector<Node> sought;
    for (const std::string& path : nodes) {
        Node node;
        node.name = path;
        ::stat((root + path).c_str(), &node.status);
        sought.push_back(node);
    }
    std::vector<std::vector<Holder>> holders(nodes.size());
    std::error_code error;
    for (auto entry = fs::directory_iterator(root + "/proc", error);
         !error && entry != fs::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        int pid = 0;
        const auto [end, fault] = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (fault != std::errc() || end != name.data() + name.size()) {
            continue;
        }
        const std::vector<bool> open = openNodesOf(entry->path(), sought);
        if (std::find(open.begin(), open.end(), true) == open.end()) {
            continue;
        }
        const Holder holder{pid, readWord(entry->path().string() + "/comm")};
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            if (open[i]) {
                holders[i].push_back(holder);
            }
        }
    }
    for (std::vector<Holder>& list : holders) {
        std::sort(list.begin(), list.end(),
                  [](const Holder& a, const Holder& b) { return a.pid < b.pid; });
    }
    return holders;
}

} // namespace zrn
