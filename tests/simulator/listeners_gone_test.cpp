// Events for a program that has just stopped listening.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

class ListenersGone : public testing::Test
{
protected:
    ListenersGone()
    {
        m_address.sun_family = AF_UNIX;
        // In the abstract name space; nothing is left of it when the socket is closed.
        const std::string name = "zrnsim-listener-" + std::to_string(getpid());
        std::memcpy(m_address.sun_path + 1, name.data(), name.size());
        m_addressSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
        m_listener = socket(AF_UNIX, SOCK_DGRAM, 0);
        m_sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    }

    ~ListenersGone() override
    {
        close(m_listener);
        close(m_sender);
    }

    void connectAndBindFirst()
    {
        const auto* address = reinterpret_cast<const sockaddr*>(&m_address);
        ASSERT_EQ(bind(m_listener, address, m_addressSize), 0);
        ASSERT_EQ(connect(m_sender, address, m_addressSize), 0);
    }

    ssize_t send()
    {
        iovec parts[] = {{m_text, 4}, {m_text, 2}};
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = 2;
        return sendmsg(m_sender, &message, 0);
    }

    sockaddr_un m_address{};
    socklen_t m_addressSize = 0;
    int m_listener = -1;
    int m_sender = -1;
    char m_text[5] = "add@";
};

TEST_F(ListenersGone, TakesNothingFromThoseThatListen)
{
    connectAndBindFirst();
    EXPECT_EQ(send(), 6);
    char received[16] = {};
    EXPECT_EQ(recv(m_listener, received, sizeof received, 0), 6);
    EXPECT_STREQ(received, "add@ad");
}

TEST_F(ListenersGone, AnEventIsSentToNobodyAfterThem)
{
    connectAndBindFirst();
    close(m_listener);
    m_listener = -1;
    EXPECT_EQ(send(), 6);
}

TEST_F(ListenersGone, OtherFailuresAreTold)
{
    EXPECT_EQ(send(), -1);
    EXPECT_EQ(errno, ENOTCONN);
}

} // namespace
