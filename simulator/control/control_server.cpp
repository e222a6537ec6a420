#include "control/control_server.h"

#include <filesystem>
#include <gio/gunixsocketaddress.h>
#include <memory>
#include <stdexcept>

namespace zrnsim
{

namespace
{

/// One client of the control socket, from its connection to its end of file.
struct Connection {
    Connection(CommandProcessor* commands, GSocketConnection* connected)
        : processor(commands)
        , socket(G_SOCKET_CONNECTION(g_object_ref(connected)))
        , input(g_data_input_stream_new(g_io_stream_get_input_stream(G_IO_STREAM(connected))))
    {
    }
    ~Connection()
    {
        g_object_unref(input);
        g_object_unref(socket);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    CommandProcessor* processor;
    GSocketConnection* socket;
    GDataInputStream* input;
};

void readNext(std::unique_ptr<Connection> connection);

void onLine(GObject*, GAsyncResult* result, gpointer data)
{
    std::unique_ptr<Connection> connection(static_cast<Connection*>(data));
    gchar* const text =
        g_data_input_stream_read_line_finish(connection->input, result, nullptr, nullptr);
    if (text == nullptr) {
        return;
    }
    const std::string answer = connection->processor->executeLine(text) + "\n";
    g_free(text);
    GOutputStream* const output = g_io_stream_get_output_stream(G_IO_STREAM(connection->socket));
    if (g_output_stream_write_all(output, answer.data(), answer.size(), nullptr, nullptr,
                                  nullptr) != FALSE) {
        readNext(std::move(connection));
    }
}

void readNext(std::unique_ptr<Connection> connection)
{
    GDataInputStream* const input = connection->input;
    g_data_input_stream_read_line_async(input, G_PRIORITY_DEFAULT, nullptr, onLine,
                                        connection.release());
}

gboolean onIncoming(GSocketService*, GSocketConnection* socket, GObject*, gpointer data)
{
    readNext(std::make_unique<Connection>(static_cast<CommandProcessor*>(data), socket));
    return TRUE;
}

} // namespace

ControlServer::ControlServer(CommandProcessor& processor, const std::string& socketPath)
    : m_service(g_socket_service_new())
{
    std::filesystem::remove(socketPath); // of a server that has gone
    GSocketAddress* const address = g_unix_socket_address_new(socketPath.c_str());
    GError* error = nullptr;
    g_socket_listener_add_address(G_SOCKET_LISTENER(m_service), address, G_SOCKET_TYPE_STREAM,
                                  G_SOCKET_PROTOCOL_DEFAULT, nullptr, nullptr, &error);
    g_object_unref(address);
    if (error != nullptr) {
        const std::string reason = error->message;
        g_error_free(error);
        g_object_unref(m_service);
        throw std::runtime_error("control socket " + socketPath + ": " + reason);
    }
    g_signal_connect(m_service, "incoming", G_CALLBACK(onIncoming), &processor);
    g_socket_service_start(m_service);
}

ControlServer::~ControlServer()
{
    g_socket_service_stop(m_service);
    g_socket_listener_close(G_SOCKET_LISTENER(m_service));
    g_object_unref(m_service);
}

} // namespace zrnsim
