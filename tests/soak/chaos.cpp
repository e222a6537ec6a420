#include "chaos.h"

#include "virtual_camera.h"

#include <nlohmann/json.hpp>

#include <array>

namespace soak
{
namespace
{

using nlohmann::json;
using std::chrono::milliseconds;

struct Fault {
    const char* name;
    const char* command;
    Harm harm;
    json (*fields)(Random& random);
    const char* remedy; ///< the command that ends it, some time later, or null
};

json nothing(Random&)
{
    return json::object();
}

json controlFault(const char* action, int count)
{
    return {{"action", action}, {"count", count}};
}

const std::array faults = {
    Fault{"unplugged", "unplug", Harm::Departure, nothing, "plug"},
    Fault{"silent", "freeze", Harm::None, nothing, "thaw"},
    Fault{"endpoint halted", "halt", Harm::BrokenWire, nothing, nullptr},
    Fault{"transfers failed", "transfer-fault", Harm::BrokenWire,
          [](Random& random) {
              return json{{"kind", pick(random, 0, 1) ? "protocol" : "overflow"},
                          {"count", pick(random, 1, 120)}};
          },
          nullptr},
    Fault{"frames of other sizes", "frame-fault", Harm::None,
          [](Random& random) {
              return json{{"count", pick(random, 1, 5)},
                          {"sizeDelta", (pick(random, 0, 1) ? 1 : -1) * pick(random, 1, 50'000)}};
          },
          nullptr},
    Fault{"huge frame", "frame-fault", Harm::None,
          [](Random&) {
              return json{{"count", 1}, {"bytes", 18'000'000}};
          },
          nullptr},
    Fault{"payloads lost", "frame-fault", Harm::None,
          [](Random& random) {
              return json{{"count", pick(random, 1, 5)}, {"lostPayloads", 1}};
          },
          nullptr},
    Fault{"payloads with error bit", "frame-fault", Harm::None,
          [](Random& random) {
              return json{{"count", pick(random, 1, 5)}, {"errorPayloads", 1}};
          },
          nullptr},
    Fault{"frames without end", "frame-fault", Harm::None,
          [](Random& random) {
              return json{{"count", pick(random, 1, 5)}, {"withoutEndOfFrame", true}};
          },
          nullptr},
    Fault{"controls delayed", "control-fault", Harm::None,
          [](Random& random) {
              json fields = controlFault("delay", pick(random, 1, 5));
              fields["milliseconds"] = pick(random, 20, 400);
              return fields;
          },
          nullptr},
    Fault{"controls stalled", "control-fault", Harm::None,
          [](Random& random) { return controlFault("stall", pick(random, 1, 5)); }, nullptr},
    Fault{"controls failed", "control-fault", Harm::None,
          [](Random& random) { return controlFault("fail", pick(random, 1, 5)); }, nullptr},
    Fault{"control unanswered", "control-fault", Harm::None,
          [](Random&) { return controlFault("ignore", 1); }, nullptr},
};

} // namespace

void causeFaults(std::size_t cameraCount, const HarmObserver& onHarm, Pauses& pauses, unsigned seed,
                 FaultCounts& counts)
{
    Random random(seed);
    while (pauses.pause(milliseconds(pick(random, 50, 1500)))) {
        const auto camera =
            static_cast<std::size_t>(pick(random, 0, static_cast<int>(cameraCount) - 1));
        const Fault& fault = pickFrom(random, faults);
        VirtualCamera device(camera);
        if (!device.isPlugged()) {
            continue;
        }
        const json fields = fault.fields(random);
        onHarm(camera, fault.harm);
        device.ask(fault.command, fields);
        ++counts[fault.name];
        if (fault.remedy) {
            pauses.pause(milliseconds(pick(random, 50, 1500)));
            device.tell(fault.remedy);
        }
    }
}

} // namespace soak
