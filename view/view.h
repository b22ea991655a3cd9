// The mesh as a picture: one HTML page that needs nothing else, drawn from the daemon's JSON file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kv1905d {

inline constexpr const char *kViewDataPath = "/data.json";
inline constexpr uint16_t kDefaultViewPort = 1905;

struct ViewOptions {
    std::string dataModel;
    std::string output;            // empty: standard output
    std::optional<uint16_t> port;  // where to serve the page; 0 is any
    bool json = false;             // failures as JSON
};

// Returns nothing after printing help or version. Throws BadOption.
std::optional<ViewOptions> parseViewOptions(int argc, const char *const *argv);

// The page with its style and script in it, and places for what differs; and what it may load and run. Made by the
// build.
extern const char *const kViewPage;
extern const char *const kViewPolicy;

// The JSON object in the file, in one line. Throws like readModel().
std::string modelText(const std::string &path);

// Returns the page that draws this JSON text, which may be "null". It refreshes from a `source` on its own server, if
// not empty. The same text produces the same page.
std::string viewPage(const std::string &model, const std::string &source);

// Writes the page of that file to standard output or, if `output` is not empty, replaces that file. Throws Failure, or
// like readModel().
void writeView(const std::string &dataModel, const std::string &output);

// Returns whether a request's Host header, with or without port, names this machine's loopback: a page of another site
// whose name resolves to it must not read the mesh.
bool isLoopbackHost(std::string_view host);

// Serve the page and the file's data on 127.0.0.1 until the process is ended; port 0: a free one. Throws Failure.
void serveView(const std::string &dataModel, uint16_t port);

}  // namespace kv1905d
