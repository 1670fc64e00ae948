#include <fcntl.h>
#include <sys/stat.h>

#include <regex>

#include "BridgeFixture.h"
#include "bridge/ItemFacts.h"
#include "bridge/NaturalOrder.h"
#include "support/FaultInjectingFileSystem.h"

namespace vorna::bridge::testfixture {
namespace {

void setModificationTime(const std::string& path, time_t seconds, long nanos) {
  timespec times[2] = {{seconds, nanos}, {seconds, nanos}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

using FileBridgeReadTest = BridgeTest;

TEST_F(FileBridgeReadTest, UnmatchedMethodOrOpIsAnUnknownOp) {
  const std::pair<std::string, std::string> cases[] = {
      {"PATCH", "file"}, {"GET", "File"}, {"POST", "file"}, {"GET", "lists"},
      {"GET", ""},       {"PUT", "list"}, {"HEAD", "stat"},
  };
  for (const auto& [method, op] : cases) {
    BridgeResponse response = call(method, op, {{"path", root}});
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.body, "{\"error\":\"unknown op: " + method + " " + op + "\"}");
  }
}

// Names that are not UTF-8 are left out, with one log line.
TEST_F(FileBridgeReadTest, ListsVisibleNamesInNaturalOrderWithTheirKinds) {
  for (const char* name :
       {"b.html", "A.html", "page10.html", "page2.html", ".git", "q\"\\\t.html", "é.html"}) {
    tmp.write(std::string("w/") + name, "x");
  }
  tmp.makeFolder("w/img");
  tmp.makeFolder("w/.hidden");
  tmp.symlink(root + "/img", "w/pictures");
  tmp.symlink(root + "/nowhere", "w/dangling");
  tmp.write("w/bad\xff.html", "x");
  tmp.write("w/worse\xc3(.html", "x");
  BridgeResponse response = get("list", root);
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.headers, kJsonHeaders);
  EXPECT_EQ(response.body,
            R"([{"kind":"file","name":"A.html"},{"kind":"file","name":"b.html"},)"
            R"({"kind":"file","name":"dangling"},{"kind":"directory","name":"img"},)"
            R"({"kind":"file","name":"page2.html"},{"kind":"file","name":"page10.html"},)"
            R"({"kind":"directory","name":"pictures"},{"kind":"file","name":"q\"\\\t.html"},)"
            R"({"kind":"file","name":"é.html"}])");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"Vorna bridge: list of " + root +
                                                   " left out 2 name(s) that are not valid "
                                                   "UTF-8\n"}));
}

// Names equal once case is folded keep the order they were listed in.
TEST_F(FileBridgeReadTest, NaturalOrderFoldsCaseComparesNumbersAndKeepsTies) {
  using Names = std::vector<std::string>;
  const std::pair<Names, Names> cases[] = {
      {{"x.htm", "Tool.app", "sub", "notes.txt", "notes.md", "file-10.html", "file-2.html",
        "data.bin", "alias", "a_b.html", "a-b.html", "a b.html", "A.html"},
       {"A.html", "a b.html", "a-b.html", "a_b.html", "alias", "data.bin", "file-2.html",
        "file-10.html", "notes.md", "notes.txt", "sub", "Tool.app", "x.htm"}},
      {{"B", "a", "b"}, {"a", "B", "b"}},
      {{"b", "a", "B"}, {"a", "b", "B"}},
  };
  for (auto [names, sorted] : cases) {
    sortNaturally(names);
    EXPECT_EQ(names, sorted);
  }
}

// Which paths are inside: WorkspaceBoundaryTest; here, that every op asks.
TEST_F(FileBridgeReadTest, PathParametersAreRefusedBeforeAnythingIsReadAndLinksAreResolved) {
  tmp.makeFolder("outside");
  tmp.write("outside/secret.html", "secret");
  tmp.symlink(tmp / "outside", "w/docs");
  tmp.symlink("loop", "w/loop");
  const std::pair<Query, std::string> cases[] = {
      {{}, "missing path"},
      {{{"path", ""}}, "missing path"},
      {{{"path", "a.html"}}, "path must be absolute"},
      {{{"path", root + "/docs/secret.html"}}, "path is outside the workspace"},
      {{{"path", root + "/loop/x"}}, "path is outside the workspace"},
      // A NUL inside a value makes it outside; it never cuts the path short.
      {{{"path", root + std::string("/a.html\0", 8)}}, "path is outside the workspace"},
  };
  for (const char* op : {"list", "stat", "file", "history", "deleted"}) {
    for (const auto& [query, message] : cases) {
      expectError(call("GET", op, query), 400, message);
    }
  }
  expectError(call("HEAD", "file", {{"path", root + "/docs/secret.html"}}), 400,
              "path is outside the workspace");
  // Paths through inside links are answered under their real names.
  tmp.makeFolder("w/real");
  tmp.write("w/real/a.html", "<p>a</p>");
  tmp.symlink("real", "w/alias");
  EXPECT_EQ(get("file", root + "/alias/a.html").body, "<p>a</p>");
  expectError(get("stat", root + "/alias/missing.html"), 404,
              "not found: " + root + "/real/missing.html");
}

// A folder has no size and no fingerprint; a file that cannot be read is
// still stated, without them.
TEST_F(FileBridgeReadTest, StatCarriesKindSizeFingerprintAndRoundedMilliseconds) {
  tmp.makeFolder("w/img");
  tmp.write("w/a.html", "hello");
  tmp.write("w/locked.html", "hello");
  setModificationTime(root + "/img", 1700000000, 250000000);
  setModificationTime(root + "/a.html", 1, 62500000);
  testing::FaultInjectingFileSystem faulty;
  faulty.failWhere(testing::FsCall::open, "locked.html", EACCES);
  fs = &faulty;
  EXPECT_EQ(get("stat", root + "/img").body,
            R"({"kind":"directory","mtime":1700000000.25,"mtime_ms":1700000000250,"size":0})");
  EXPECT_EQ(get("stat", root + "/a.html").body,
            R"({"fingerprint":")" + sha("hello") +
                R"(","kind":"file","mtime":1.0625,"mtime_ms":1063,"size":5})");
  expectError(get("stat", root + "/gone.html"), 404, "not found: " + root + "/gone.html");
  contracts::Json facts = bodyJson(get("stat", root + "/locked.html"));
  EXPECT_EQ(facts["size"], 0);
  EXPECT_FALSE(facts.contains("fingerprint"));
  EXPECT_EQ(facts["kind"], "file");
}

TEST(ModificationTimeTest, MillisecondsRoundHalvesAwayFromZero) {
  const std::pair<timespec, std::int64_t> cases[] = {{{1, 62499999}, 1062},
                                                     {{0, 500000}, 1},
                                                     {{0, 499999}, 0},
                                                     {{-2, 500000}, -2000},
                                                     {{-1, 999500000}, -1},
                                                     {{-1, 999600000}, 0},
                                                     {{1763324715, 123456789}, 1763324715123}};
  for (const auto& [time, milliseconds] : cases) {
    EXPECT_EQ(ModificationTime::of(time).milliseconds, milliseconds)
        << time.tv_sec << "." << time.tv_nsec;
  }
}

// The content type follows the extension in any case.
TEST_F(FileBridgeReadTest, FileReadAnswersBytesWithTheThreeHeadersAndCheckpointsPages) {
  tmp.write("w/a.HTML", "<h1>A</h1>");
  setModificationTime(root + "/a.HTML", 1, 62500000);
  BridgeResponse response = get("file", root + "/a.HTML");
  EXPECT_EQ(response, (BridgeResponse{200,
                                      {{"Content-Type", "text/html; charset=utf-8"},
                                       {"X-VN-Fingerprint", sha("<h1>A</h1>")},
                                       {"X-QX-Mtime", "1063"}},
                                      "<h1>A</h1>"}));
  BridgeResponse head = call("HEAD", "file", {{"path", root + "/a.HTML"}});
  EXPECT_EQ(head, (BridgeResponse{200, response.headers, ""}));
  // Reading a page records one load checkpoint, reading other files none.
  tmp.write("w/n.md", "# notes");
  tmp.write("w/a.txt", "text");
  call("HEAD", "file", {{"path", root + "/n.md"}});
  get("file", root + "/a.txt");
  auto checkpoint = bridge().checkpoints().payloadURL(root + "/a.HTML", sha("<h1>A</h1>"));
  ASSERT_TRUE(checkpoint.has_value());
  EXPECT_EQ(testing::readFile(*checkpoint), "<h1>A</h1>");
  EXPECT_TRUE(bridge().checkpoints().payloadURL(root + "/n.md", sha("# notes")).has_value());
  EXPECT_FALSE(bridge().checkpoints().payloadURL(root + "/a.txt", sha("text")).has_value());
  EXPECT_EQ(service()->retentionStore().entries().size(), 2u);
  const std::pair<std::string, std::string> types[] = {
      {"m.JS", "text/javascript; charset=utf-8"}, {"k.Jpeg", "image/jpeg"},
      {"old.htm", "text/html; charset=utf-8"},    {"README", "application/octet-stream"},
      {".profile", "application/octet-stream"},   {"a.tar.gz", "application/octet-stream"},
  };
  for (const auto& [name, type] : types) {
    tmp.write("w/" + name, "x");
    EXPECT_EQ(get("file", root + "/" + name).headers.at("Content-Type"), type) << name;
  }
}

// What cannot be listed or read is not found, never a server error.
TEST_F(FileBridgeReadTest, WhatCannotBeListedOrReadIsNotFoundWithTheReason) {
  tmp.write("w/a.html", "x");
  tmp.write("w/unreadable.html", "x");
  tmp.makeFolder("w/img");
  tmp.makeFolder("w/locked");
  testing::FaultInjectingFileSystem faulty;
  faulty.failWhere(testing::FsCall::listDirectory, "/w/locked", EACCES);
  faulty.failWhere(testing::FsCall::read, "unreadable.html", EIO);
  fs = &faulty;
  struct Row {
    std::string method, op, path, error;
  } rows[] = {
      {"GET", "list", "/a.html", "not a directory: "},
      {"GET", "list", "/missing", "not a directory: "},
      {"GET", "list", "/locked", "cannot read directory: "},
      {"GET", "file", "/img", "not found: "},
      {"HEAD", "file", "/img", "not found: "},
      {"GET", "file", "/x.html", "not found: "},
      {"GET", "file", "/unreadable.html", "not found: "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.method + " " + row.op + " " + row.path);
    expectError(call(row.method, row.op, {{"path", root + row.path}}), 404,
                row.error + root + row.path);
  }
  EXPECT_EQ(call("HEAD", "file", {{"path", root + "/x.html"}}).body,
            "{\"error\":\"not found: " + std::regex_replace(root, std::regex("/"), "\\/") +
                "\\/x.html\"}");
}

}  // namespace
}  // namespace vorna::bridge::testfixture
