#include "soak_round.h"

#include "soak_camera.h"
#include "soak_stream.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace soak
{
namespace
{

using nlohmann::json;
using std::chrono::milliseconds;

SentFrame sentFrame(const json& record)
{
    const std::uint64_t whole = record.at("width").get<std::uint64_t>() *
                                record.at("height").get<std::uint64_t>() *
                                record.at("bytesPerPosition").get<std::uint64_t>();
    const bool isDamaged = record.at("bytes").get<std::uint64_t>() != whole ||
                           record.at("payloadsLost").get<int>() > 0 ||
                           record.at("payloadsWithError").get<int>() > 0;
    return {record.at("frameNumber"), record.at("time"), record.at("complete"), isDamaged};
}

} // namespace

Soak::Soak(IFactory& factory, OperationLog& log, UsageTrend& usage, std::size_t cameraCount,
           unsigned seed)
    : m_factory(factory)
    , m_log(log)
    , m_usage(usage)
    , m_random(seed)
    , m_framesSeen(cameraCount)
{
    for (std::size_t i = 0; i < cameraCount; ++i) {
        m_devices.emplace_back(i);
    }
}

void Soak::makeCamerasReady()
{
    // Numbers that no earlier round has used.
    constexpr std::uint64_t numbersPerRound = 0x10000;
    for (std::size_t i = 0; i < m_framesSeen.size(); ++i) {
        m_devices[i].restore();
        m_devices[i].tell(
            "frame-number",
            {{"number", static_cast<std::uint32_t>(m_account.rounds * numbersPerRound)}});
    }
    constexpr int attempts = 100;
    Pauses pauses;
    for (int i = 0; i < attempts; ++i) {
        const int found = m_log.time("enumDevice", [this] { return m_factory.enumDevice(); });
        if (found == static_cast<int>(m_framesSeen.size())) {
            return;
        }
        pauses.pause(milliseconds(20)); // plugging in takes its time
    }
    throw std::runtime_error("the cameras are not found");
}

void Soak::runRound()
{
    ++m_account.rounds;
    makeCamerasReady();
    m_usage.sample();
    // Every third round is the client library's.
    if (m_account.rounds % 3 == 0) {
        streamThroughLibrary();
        return;
    }
    std::vector<std::unique_ptr<SoakCamera>> cameras;
    for (std::size_t i = 0; i < m_framesSeen.size(); ++i) {
        cameras.push_back(std::make_unique<SoakCamera>(m_factory, m_log, i, m_devices[i].serial()));
    }
    stream(cameras);

    // Some hosts stop first, some delete a camera that streams, some enumerate on top of it.
    if (pick(m_random, 0, 3) == 0) {
        for (const auto& camera : cameras) {
            camera->noteStopping();
        }
        m_log.time("enumDevice", [this] { return m_factory.enumDevice(); });
    }
    for (const auto& camera : cameras) {
        if (pick(m_random, 0, 1) == 0) {
            camera->stop();
        } else {
            camera->noteStopping();
        }
    }
    for (auto& camera : cameras) {
        camera->close();
        settle(camera->index(), *camera);
    }
}

void Soak::streamThroughLibrary()
{
    QStringList enumerated; // with all others; the library opens those that it uses
    for (const zrn::BusCamera& camera : zrn::Bus().cameras()) {
        enumerated += '-' + QString::fromStdString(camera.place());
    }
    m_factory.setProperty(IFactory::devicesProperty, enumerated);
    m_log.time("enumDevice", [this] { return m_factory.enumDevice(); });
    const auto driver = std::make_shared<zrn::Driver>(
        std::shared_ptr<IFactory>(std::shared_ptr<void>(), &m_factory), zrn::busReaders());
    std::vector<std::unique_ptr<SoakStream>> streams;
    constexpr zrn::QueuePolicy policies[] = {zrn::QueuePolicy::Newest, zrn::QueuePolicy::All,
                                             zrn::QueuePolicy::Block};
    for (std::size_t i = 0; i < m_devices.size(); ++i) {
        streams.push_back(std::make_unique<SoakStream>(
            driver, m_log, m_devices[i].serial(),
            policies[(m_account.rounds / 3 + i) % std::size(policies)]));
        ++m_account.starts;
    }
    Pauses pauses;
    std::vector<std::thread> threads;
    for (const auto& stream : streams) {
        threads.emplace_back([&pauses, &stream, seed = m_random()] {
            stream->takeThread(pauses, static_cast<unsigned>(seed));
        });
    }
    threads.emplace_back([this, &pauses, seed = m_random()] {
        causeFaults(
            m_devices.size(), [](std::size_t, Harm) {}, pauses, static_cast<unsigned>(seed),
            m_account.faults);
    });
    std::this_thread::sleep_for(milliseconds(pick(m_random, 2000, 8000)));
    pauses.end();
    for (std::thread& thread : threads) {
        thread.join();
    }
    // Some end in the middle of an outage.
    const bool isAwaited = pick(m_random, 0, 1) == 0;
    for (std::size_t i = 0; i < streams.size(); ++i) {
        if (isAwaited) {
            m_devices[i].restore();
            m_log.time("return of a stream", [&] { streams[i]->waitForFrame(); });
        }
        streams[i]->close();
        settle(i, *streams[i]);
    }
    driver->openAll(); // what the other rounds enumerate
}

void Soak::stream(std::vector<std::unique_ptr<SoakCamera>>& cameras)
{
    Pauses pauses;
    std::vector<std::thread> threads;
    for (const auto& camera : cameras) {
        camera->start(m_random);
        ++m_account.starts;
        threads.emplace_back([&pauses, &camera, seed = m_random()] {
            camera->grabThread(pauses, static_cast<unsigned>(seed));
        });
        threads.emplace_back([&pauses, &camera, seed = m_random()] {
            camera->controlThread(pauses, static_cast<unsigned>(seed));
        });
    }
    threads.emplace_back([this, &pauses, &cameras, seed = m_random()] {
        const HarmObserver note = [&cameras](std::size_t camera, Harm harm) {
            if (harm == Harm::BrokenWire) {
                cameras[camera]->noteBrokenWire();
            } else if (harm == Harm::Departure) {
                cameras[camera]->noteStopping();
            }
        };
        causeFaults(cameras.size(), note, pauses, static_cast<unsigned>(seed), m_account.faults);
    });

    const Seconds end = now() + pick(m_random, 2000, 8000) / 1000.0;
    while (now() < end && pauses.pause(milliseconds(100))) {
        for (const auto& camera : cameras) {
            if (camera->isSilent() || pick(m_random, 0, 99) == 0) {
                camera->stop();
                camera->start(m_random);
                ++m_account.restarts;
                ++m_account.starts;
            } else if (pick(m_random, 0, 99) == 0) {
                camera->discard();
            }
        }
    }
    pauses.end();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

template <typename Streaming>
void Soak::settle(std::size_t index, const Streaming& camera)
{
    std::uint64_t& seen = m_framesSeen[index];
    std::vector<SentFrame> sent;
    // Over a connection of its own, with which the memory for this long answer goes.
    const json answer = VirtualCamera(index).ask("frames", {{"since", seen}});
    for (const json& record : answer.at("frames")) {
        sent.push_back(sentFrame(record));
    }
    const std::uint64_t counted = m_devices[index].counter("framesStarted");
    m_account.sent += counted - seen;
    seen = counted;
    for (const auto& [outcome, count] : camera.settle(sent)) {
        m_account.outcomes[outcome] += count;
    }
}

} // namespace soak
