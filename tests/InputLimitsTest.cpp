// What an input may cost and reach: the files that a playlist names, and memory.
#include "tests/support/MadeMedia.h"
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;
using Quorva::Media::MadeFile;
using testing::HasSubstr;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr const char* memoryLimit = "";  // these reserve more addresses than any limit
#else
constexpr const char* memoryLimit = "ulimit -v 2000000 && ";  // KiB
#endif

/// The document that `probe --json` prints.
json Probe(std::vector<std::string> arguments, int code)
{
    arguments.insert(arguments.begin(), {"probe", "--json"});
    const Outcome outcome = RunProgram(arguments);
    EXPECT_EQ(outcome.code, code) << outcome.errors;
    return json::parse(outcome.output, nullptr, false);
}

/// A port of this machine that notices connections.
class Listener {
public:
    Listener()
    {
        socklen_t size = sizeof address;
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(descriptor, 8), 0);
        EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size), 0);
    }
    ~Listener() { close(descriptor); }
    std::string Url() const { return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)); }
    bool HasCaller() const
    {
        pollfd waiting{descriptor, POLLIN, 0};
        return poll(&waiting, 1, 0) > 0;
    }

private:
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
};

class Playlists : public testing::Test {
protected:
    Playlists()
    {
        std::filesystem::create_directory(folder.At("sub"));
        for (const std::string& place :
             {folder.At("piece.ts"), folder.At("sub/piece.ts"), other.At("piece.ts")})
            std::filesystem::copy_file(MadeFile("h264-aac.ts"), place);
        single = Probe({folder.At("piece.ts"), "--count"}, 0)["files"][0]["count"]["packets"];
    }
    std::string Put(const std::string& name, const std::vector<std::string>& pieces, const char* end) const
    {
        std::string text = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n";
        for (const std::string& piece : pieces)
            text += "#EXTINF:1,\n" + piece + "\n";
        return folder.Put(name, text + end);
    }
    std::string PutMaster(const std::string& name, const std::vector<std::string>& variants) const
    {
        std::string text = "#EXTM3U\n";
        for (const std::string& variant : variants)
            text += "#EXT-X-STREAM-INF:BANDWIDTH=1\n" + variant + "\n";
        return folder.Put(name, text);
    }

    const TemporaryFolder folder, other;
    int single = 0;  ///< packets of a piece
};

TEST_F(Playlists, ReachPiecesInTheirFolderAndNothingElse)
{
    const Listener listener;
    std::filesystem::create_symlink(other.At("piece.ts"), folder.At("out.ts"));
    std::filesystem::create_directory_symlink(other.path, folder.At("outside"));
    std::filesystem::create_symlink(folder.At("sub/piece.ts"), folder.At("in.ts"));
    ASSERT_EQ(mkfifo(folder.At("pipe.ts").c_str(), 0600), 0);
    const struct {
        std::string entry, message;
        bool isOutside = false;
    } rows[] = {
        {"sub/piece.ts", ""},
        {"sub/../piece.ts", ""},
        {"in.ts", ""},
        {folder.At("piece.ts"), ""},
        {other.At("piece.ts"), "--allow-outside permits that", true},
        {"../" + other.path.filename().native() + "/piece.ts", "--allow-outside permits that", true},
        {"file://" + other.At("piece.ts"), "--allow-outside permits that", true},
        {"out.ts", "'" + folder.At("out.ts") + "' was not opened: it is outside the folder", true},
        {"outside/piece.ts", "--allow-outside permits that", true},
        {"pipe.ts", "not a regular file"},
        {"missing.ts", "No such file or directory"},
        {listener.Url() + "/piece.ts", "never network addresses"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.entry);
        const std::string path = Put("list.m3u8", {"piece.ts", row.entry}, "#EXT-X-ENDLIST\n");
        const json file = Probe({path, "--count"}, !row.message.empty())["files"][0];
        EXPECT_EQ(file["count"]["packets"], row.message.empty() ? 2 * single : single);
        EXPECT_THAT(file.value(json::json_pointer("/error/message"), ""), HasSubstr(row.message));
        if (row.isOutside) {
            EXPECT_EQ(Probe({path, "--count", "--allow-outside"}, 0)["files"][0]["count"]["packets"],
                      2 * single);
        }
    }
    EXPECT_FALSE(listener.HasCaller());
}

TEST_F(Playlists, EndWithWhatThereIs)
{
    const std::vector<std::string> pieces(5, "piece.ts");
    const std::string live = Put("live.m3u8", pieces, "");
    const std::string whole = Put("whole.m3u8", pieces, "#EXT-X-ENDLIST\n");
    const std::string master = PutMaster("master.m3u8", {"live.m3u8", "whole.m3u8", "whole.m3u8"});
    const std::string loop = PutMaster("loop.m3u8", {"loop.m3u8", "loop.m3u8"});
    PutMaster("b.m3u8", {"c.m3u8", "c.m3u8"});
    PutMaster("c.m3u8", {"b.m3u8", "b.m3u8"});
    const struct {
        std::string path;
        int packets;
        const char* message;
    } rows[] = {
        {live, 5 * single, ""},
        {whole, 5 * single, ""},
        {master, 15 * single, ""},
        {loop, 0, "a playlist of playlists, named by another one"},
        {PutMaster("a.m3u8", {"b.m3u8"}), 0, "a playlist of playlists, named by another one"},
        {PutMaster("many.m3u8", std::vector<std::string>(100000, "live.m3u8")), 0,
         "more than 1000 playlists"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        const Outcome outcome =
            RunProgram({"-c", std::string(memoryLimit) +
                                  "timeout 20 " TESSADRIN_PROGRAM " probe --json --count " + row.path},
                       "/bin/bash");
        ASSERT_EQ(outcome.code, *row.message != '\0') << outcome.errors;
        const json file = json::parse(outcome.output)["files"][0];
        if (row.packets > 0) {
            EXPECT_EQ(file["count"]["packets"], row.packets);
        }
        EXPECT_THAT(outcome.output, HasSubstr(row.message));
    }
}

TEST(InputLimits, MemoryHasABudget)
{
    const TemporaryFolder folder;
    const auto picture = [&](const std::string& name, int side) {
        const std::string size = std::to_string(side);
        return folder.Put(name, "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + "\" height=\"" +
                                    size + "\"><rect width=\"9\" height=\"9\"/></svg>");
    };
    const std::string large = picture("large.svg", 2500), giant = picture("giant.svg", 15000);
    const std::string name = folder.At("out");
    const struct {
        std::vector<std::string> arguments;
        int code;
        const char* message;
    } rows[] = {
        {{"dump", large, "--name", name},                                 0, ""                                                                },
        {{"dump", large, "--name", name, "--max-memory", "32M"},
         1,                                                                  "large.svg: needs more than the 32 MiB that --max-memory allows: "},
        {{"dump", giant, "--name", name},
         1,                                                                  "giant.svg: needs more than the 1 GiB that --max-memory allows: " },
        {{"convert", large, folder.At("a.png"), "--max-memory", "0.5G"},  0, ""                                                                },
        {{"convert", large, folder.At("b.png"), "--max-memory", "32MiB"},
         1,                                                                  "needs more than the 32 MiB that"                                 },
        {{"probe", large, "--max-memory", "many"},
         2,                                                                  "invalid size 'many' (examples: 512M, 1.5GiB, 2000000000)"        },
        {{"probe", large, "--max-memory", "1T"},                          2, "invalid size '1T'"                                               },
        {{"probe", large, "--max-memory", "1K"},                          2, "'1K' is not between 16 MiB and 1 EiB"                            },
        {{"probe", large, "--max-memory", "nan"},                         2, "is not between"                                                  },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        const Outcome outcome = RunProgram(row.arguments);
        EXPECT_EQ(outcome.code, row.code) << outcome.errors;
        EXPECT_THAT(outcome.errors, HasSubstr(row.message));
    }
}

}  // namespace
