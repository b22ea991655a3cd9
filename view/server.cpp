#include <httplib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>

#include "app/outcome.h"
#include "view/view.h"

namespace kv1905d {
namespace {

constexpr const char *kAddress =
    "127.0.0.1";  // never an outer one: the page shows the whole network to anybody who asks
constexpr const char *kText = "text/plain; charset=utf-8";

// The default would let a second server share the port.
void setSocketOptions(socket_t socket) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

// A client that is slow, or never says what it wants, has one of the connections for a second and a half per byte at
// most; others have theirs.
void limit(httplib::Server &server) {
    constexpr size_t kConnections = 64;
    constexpr std::chrono::milliseconds kPatience{1500};
    server.new_task_queue = [] { return new httplib::ThreadPool(kConnections); };
    server.set_read_timeout(kPatience);
    server.set_write_timeout(kPatience);
    server.set_keep_alive_max_count(1);  // what follows a refused request is its body
}

void answer(httplib::Response &response, int status, const std::string &text) {
    response.status = status;
    response.set_content(text + "\n", kText);
}

std::string modelOrNull(const std::string &path) {
    try {
        return modelText(path);
    } catch (const std::exception &) {
        return "null";  // the page asks again and tells the failure
    }
}

void sendModel(const std::string &path, httplib::Response &response) {
    try {
        response.set_content(modelText(path), "application/json");
    } catch (const std::exception &error) {
        answer(response, 503, error.what());
    }
}

void route(httplib::Server &server, const std::string &dataModel) {
    server.set_default_headers(
        {{"Cache-Control", "no-store"},
         {"X-Content-Type-Options", "nosniff"},
         {"Cross-Origin-Resource-Policy", "same-origin"},
         {"Content-Security-Policy", kViewPolicy + std::string("; connect-src 'self'; frame-ancestors 'none'")}});
    server.set_pre_routing_handler([](const httplib::Request &request, httplib::Response &response) {
        if (request.method != "GET" && request.method != "HEAD") {
            answer(response, 405, "only GET and HEAD are answered here");
            return httplib::Server::HandlerResponse::Handled;  // without reading the body
        }
        if (request.get_header_value_count("Host") == 1 && isLoopbackHost(request.get_header_value("Host"))) {
            return httplib::Server::HandlerResponse::Unhandled;
        }
        answer(response, 403, "only http://127.0.0.1 and http://localhost are answered here");
        return httplib::Server::HandlerResponse::Handled;
    });
    server.Get("/", [dataModel](const httplib::Request &, httplib::Response &response) {
        response.set_content(viewPage(modelOrNull(dataModel), kViewDataPath), "text/html; charset=utf-8");
    });
    server.Get(kViewDataPath,
               [dataModel](const httplib::Request &, httplib::Response &response) { sendModel(dataModel, response); });
    server.set_error_handler([](const httplib::Request &, httplib::Response &response) {
        if (response.body.empty())
            answer(response, response.status, "there is only / and " + std::string(kViewDataPath));
    });
}

}  // namespace

bool isLoopbackHost(std::string_view host) {
    const size_t colon = host.find(':');
    if (colon != std::string_view::npos) {
        const std::string_view port = host.substr(colon + 1);
        if (port.empty() || port.find_first_not_of("0123456789") != std::string_view::npos) return false;
        host = host.substr(0, colon);
    }
    return host == kAddress || host == "localhost";
}

void serveView(const std::string &dataModel, uint16_t port) {
    httplib::Server server;
    server.set_socket_options(setSocketOptions);
    limit(server);
    route(server, dataModel);
    errno = 0;
    const int bound = port == 0 ? server.bind_to_any_port(kAddress) : server.bind_to_port(kAddress, port) ? port : -1;
    if (bound < 0) {
        throw Failure(Status::Failure, "port " + std::to_string(port) + " of " + kAddress + ": " +
                                           std::strerror(errno) + "; choose another --port");
    }
    std::cout << "http://" << kAddress << ':' << bound << "/ shows the mesh; Ctrl-C ends this" << std::endl;
    if (!server.listen_after_bind()) throw Failure(Status::Failure, "the server of the page stopped");
}

}  // namespace kv1905d
