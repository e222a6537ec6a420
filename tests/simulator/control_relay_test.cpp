// The two ends of the relay with a socket pair in the place of the serial line.

#include "control/unix_socket.h"
#include "usbredir/control_relay.h"
#include "usbredir/event.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

namespace
{

using namespace zrnsim;

void makeBlocking(const FileDescriptor& fd)
{
    fcntl(fd.get(), F_SETFL, 0);
}

std::string readAll(const FileDescriptor& fd)
{
    std::string text;
    std::array<char, 4096> block{};
    for (;;) {
        const ssize_t count = recv(fd.get(), block.data(), block.size(), 0);
        if (count <= 0) {
            return text;
        }
        text.append(block.data(), static_cast<std::size_t>(count));
    }
}

void writeAll(const FileDescriptor& fd, const std::string& text)
{
    for (std::size_t sent = 0; sent < text.size();) {
        const ssize_t count = send(fd.get(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        ASSERT_GT(count, 0);
        sent += static_cast<std::size_t>(count);
    }
}

class ControlRelayTest : public testing::Test
{
protected:
    ControlRelayTest()
    {
        std::string name = std::filesystem::temp_directory_path() / "relay.XXXXXX";
        m_folder = mkdtemp(name.data());
        std::array<int, 2> ends{};
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data());
        m_threads.emplace_back([this, line = ends[0], listener = listenOn(m_folder / "guest")] {
            ControlRelay::nearClients(FileDescriptor(line), listener.get())
                .run(m_stop.descriptor());
        });
        m_threads.emplace_back([this, line = ends[1]] {
            ControlRelay::nearServer(FileDescriptor(line), m_folder / "host")
                .run(m_stop.descriptor());
        });
    }
    ~ControlRelayTest() override
    {
        m_stop.raise();
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        std::filesystem::remove_all(m_folder);
    }

    FileDescriptor connectClient()
    {
        FileDescriptor client = connectTo(m_folder / "guest");
        makeBlocking(client);
        return client;
    }

    static FileDescriptor acceptClient(const FileDescriptor& listener)
    {
        pollfd event{listener.get(), POLLIN, 0};
        poll(&event, 1, 20'000);
        FileDescriptor connection = acceptFrom(listener.get());
        makeBlocking(connection);
        return connection;
    }

    std::filesystem::path m_folder;
    Event m_stop;
    std::vector<std::thread> m_threads;
};

TEST_F(ControlRelayTest, CarriesRequestsAndAnswers)
{
    const FileDescriptor listener = listenOn(m_folder / "host");
    const FileDescriptor client = connectClient();
    const FileDescriptor server = acceptClient(listener);
    writeAll(client, "request\n");
    shutdown(client.get(), SHUT_WR);
    EXPECT_EQ("request\n", readAll(server));

    // The answer still passes after the client has said its last word.
    const std::string answer(3'000'000, 'x');
    std::thread writer([&] {
        writeAll(server, answer);
        shutdown(server.get(), SHUT_WR);
    });
    EXPECT_EQ(answer, readAll(client));
    writer.join();
}

TEST_F(ControlRelayTest, KeepsConnectionsApart)
{
    const FileDescriptor listener = listenOn(m_folder / "host");
    std::vector<FileDescriptor> clients;
    std::vector<FileDescriptor> servers;
    for (int i = 0; i < 5; ++i) {
        clients.push_back(connectClient());
        servers.push_back(acceptClient(listener));
    }
    for (std::size_t i = clients.size(); i-- > 0;) {
        writeAll(clients[i], "client " + std::to_string(i));
        writeAll(servers[i], "server " + std::to_string(i));
        shutdown(clients[i].get(), SHUT_WR);
        shutdown(servers[i].get(), SHUT_WR);
    }
    for (std::size_t i = 0; i < clients.size(); ++i) {
        EXPECT_EQ("client " + std::to_string(i), readAll(servers[i]));
        EXPECT_EQ("server " + std::to_string(i), readAll(clients[i]));
    }
}

TEST_F(ControlRelayTest, EndsConnectionsThatNobodyServes)
{
    const FileDescriptor client = connectClient();
    EXPECT_EQ("", readAll(client));
}

TEST(ControlRelayWithoutAFarEnd, EndsByItself)
{
    std::string name = std::filesystem::temp_directory_path() / "relay.XXXXXX";
    const std::filesystem::path folder = mkdtemp(name.data());
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data());
    const FileDescriptor farEnd(ends[1]);
    shutdown(farEnd.get(), SHUT_RD);
    const FileDescriptor listener = listenOn(folder / "guest");
    const FileDescriptor client = connectTo(folder / "guest");
    ControlRelay::nearClients(FileDescriptor(ends[0]), listener.get()).run(-1);
    std::filesystem::remove_all(folder);
}

} // namespace
