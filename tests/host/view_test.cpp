#include "app/view.h"

#include <json-c/json.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "app/app_options.h"
#include "host_support.h"

namespace kv1905d {
namespace {

constexpr const char *kModel = "/tmp/view_test.json";

Status statusThrown(const std::function<void()> &call) {
    try {
        call();
    } catch (const Failure &failure) {
        return failure.status;
    }
    return Status::Success;
}

size_t countOf(const std::string &text, const std::string &part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// What the page carries for its script.
std::string dataOf(const std::string &page) {
    const std::string open = "<script type=\"application/json\" id=\"data\">";
    const size_t from = page.find(open) + open.size();
    return page.substr(from, page.find("</script>", from) - from);
}

TEST(ViewPage, WhatTheNetworkSaysEndsNoScriptAndFillsNoOtherPlace) {
    for (const char *hostile : {
             "</script><script>alert(1)</script>",
             "<!--<script>",
             "]]>&lt;img src=x onerror=alert(1)&gt;",
             "{{source}} {{model}} {{connect}}",
             "\xE2\x80\xA8\xE2\x80\xA9",
             "\\u003c/script>",
             "\"quoted\\\"",
             "plain",
         }) {
        std::remove(kModel);
        const std::unique_ptr<json_object, decltype(&json_object_put)> model(json_object_new_object(), json_object_put);
        json_object_object_add(model.get(), hostile, json_object_new_string(hostile));
        ASSERT_EQ(json_object_to_file(kModel, model.get()), 0);
        const std::string page = viewPage(readModel(kModel), kViewDataPath);
        const std::string data = dataOf(page);
        EXPECT_EQ(data.find_first_of("<>&"), std::string::npos) << data;
        EXPECT_EQ(countOf(data, "\xE2\x80\xA8") + countOf(data, "\xE2\x80\xA9"), 0u);
        EXPECT_EQ(countOf(page, "<script"), countOf(viewPage("{}", kViewDataPath), "<script")) << hostile;
        EXPECT_EQ(countOf(page, "data-source=\"/data.json\""), 1u) << hostile;
        const std::unique_ptr<json_object, decltype(&json_object_put)> carried(json_tokener_parse(data.c_str()),
                                                                               json_object_put);
        EXPECT_TRUE(json_object_equal(carried.get(), model.get())) << data;
        EXPECT_EQ(page, viewPage(readModel(kModel), kViewDataPath));
    }
}

TEST(ViewPage, OnlyAServedPageMayConnect) {
    const std::string file = viewPage("{}", ""), served = viewPage("{}", kViewDataPath);
    EXPECT_EQ(countOf(file, "connect-src"), 0u);
    EXPECT_EQ(countOf(served, "connect-src 'self'"), 1u);
    for (const std::string &page : {file, served}) {
        EXPECT_EQ(countOf(page, kViewPolicy), 1u);
        EXPECT_EQ(countOf(page, "{{"), 0u);
        EXPECT_EQ(countOf(page, "https:") + countOf(page, "unsafe-"), 0u);
    }
}

TEST(View, FailuresNameTheFile) {
    const std::string path = kModel, nowhere = "/tmp/none/mesh.html";
    std::filesystem::remove(path);
    EXPECT_EQ(statusThrown([&] { readModel(path); }), Status::NoDaemon);
    for (const char *text : {"", "[1]", "{\"cut\": ", "null"}) {
        std::ofstream(path) << text;
        EXPECT_NE(errorOf([&] { readModel(path); }).find(path), std::string::npos) << text;
    }
    std::ofstream(path) << "{}";
    EXPECT_EQ(statusThrown([&] { writeView(path, nowhere); }), Status::Failure);
    EXPECT_NE(errorOf([&] { writeView(path, nowhere); }).find(nowhere), std::string::npos);
}

TEST(ViewServer, AnswersToLoopbackNamesAlone) {
    const std::pair<const char *, bool> rows[] = {
        {"127.0.0.1", true},
        {"127.0.0.1:1905", true},
        {"localhost", true},
        {"localhost:80", true},
        {"", false},
        {"evil.example", false},
        {"evil.example:80", false},
        {"localhost:", false},
        {"localhost:80x", false},
        {"localhost.example", false},
        {"127.0.0.1.nip.io", false},
        {"127.0.0.1:80:80", false},
        {"127.0.0.10", false},
        {"127.0.0.1 evil:80", false},
        {"evil@localhost", false},
        {" localhost", false},
    };
    for (const auto &[host, isLoopback] : rows)
        EXPECT_EQ(isLoopbackHost(host), isLoopback) << host;
}

TEST(ViewOptions, ServingAndWritingExcludeEachOther) {
    const struct {
        std::vector<const char *> words;
        std::optional<std::optional<uint16_t>> port;  // nothing: refused
    } rows[] = {
        {{}, std::optional<uint16_t>{}},
        {{"--output", "f.html"}, std::optional<uint16_t>{}},
        {{"--serve"}, kDefaultViewPort},
        {{"--serve", "--port", "0"}, uint16_t{0}},
        {{"--serve", "--port", "65535"}, uint16_t{65535}},
        {{"--serve", "--port", "65536"}, std::nullopt},
        {{"--serve", "--port", "-1"}, std::nullopt},
        {{"--port", "80"}, std::nullopt},
        {{"--serve", "--output", "f.html"}, std::nullopt},
    };
    for (const auto &row : rows) {
        std::vector<const char *> words{"kv1905App", "view"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const auto parse = [&] { return parseAppOptions(static_cast<int>(words.size()), words.data()); };
        EXPECT_EQ(statusThrown([&] { parse(); }), row.port ? Status::Success : Status::BadArguments) << words.back();
        if (row.port) {
            EXPECT_EQ(parse()->port, *row.port) << words.back();
        }
    }
}

}  // namespace
}  // namespace kv1905d
