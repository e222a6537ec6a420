#include "client/access_remedy.h"

#include "udev_rule.h"

#include <grp.h>
#include <vector>

namespace
{

std::string ruleRemedy(const char* rule)
{
    return std::string("put the line ") + rule + " into " + zrn::udevRulePath +
           ", run 'sudo udevadm control --reload' and replug the camera";
}

std::string groupRemedy(const std::string& group)
{
    return "'sudo usermod --append --groups " + group +
           " NAME' for the user, who logs in again; SupplementaryGroups=" + group +
           " for a service";
}

std::string nameOfGroup(unsigned id)
{
    std::vector<char> buffer(1 << 14);
    group entry{};
    group* found = nullptr;
    ::getgrgid_r(id, &entry, buffer.data(), buffer.size(), &found);
    return found ? found->gr_name : std::to_string(id);
}

} // namespace

std::string zrn::accessRemedy(const BusCamera& camera)
{
    if (camera.group) {
        const std::string name = nameOfGroup(*camera.group);
        return "the members of the group " + name + " may: " + groupRemedy(name);
    }
    if (camera.isForSeat) {
        return "the rule that is in force lets the user at the machine's own screen, not services "
               "and who logs in over the network: " +
               ruleRemedy(udevGroupRule) + ", then " + groupRemedy(udevGroup);
    }
    return ruleRemedy(udevRule);
}

std::string zrn::missingNodeRemedy()
{
    return "in a container, pass /dev/bus/usb through; otherwise see whether udev runs";
}
