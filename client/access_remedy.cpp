#include "client/access_remedy.h"

#include "udev_rule.h"

std::string zrn::accessRemedy()
{
    return std::string("put the line ") + udevRule + " into " + udevRulePath +
           ", run 'sudo udevadm control --reload' and replug the camera";
}

std::string zrn::missingNodeRemedy()
{
    return "in a container, pass /dev/bus/usb through; otherwise see whether udev runs";
}
