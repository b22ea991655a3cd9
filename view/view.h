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

// Returns nothing after printing help or version. Throws Failure.
std::optional<ViewOptions> parseViewOptions(int argc, char **argv);

// The page with its style and script in it, and places for what differs; and what it may load and run. Made by the
// build.
extern const char *const kViewPage;
extern const char *const kViewPolicy;

// The JSON object in the file, in one line. Throws like readModel().
std::string modelText(const std::string &path);

// The page that draws this JSON text, which may be "null". From a `source` on its own server, empty for none, it keeps
// itself up to date. The same text gives the same page.
std::string viewPage(const std::string &model, const std::string &source);

// The page of that file, to standard output or, when `output` is not empty, in place of that file. Throws
// Failure, or like readModel().
void writeView(const std::string &dataModel, const std::string &output);

// Whether a request's Host header, with or without port, names this machine's loopback: a page of another site whose
// name was made to lead here must not read the mesh.
bool isLoopbackHost(std::string_view host);

// Serve the page and the file's data on 127.0.0.1 until the process is ended; port 0: a free one. Throws Failure.
void serveView(const std::string &dataModel, uint16_t port);

}  // namespace kv1905d
