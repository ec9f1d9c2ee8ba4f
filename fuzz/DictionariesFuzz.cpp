// Metadata, trees of options, single options, and text in text: whatever the keys and values, an entry is
// found again as it was put, and nothing but the family is thrown.
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "fuzz/support/Input.h"
#include "host/FoundationIO.h"

#include <memory>

using namespace Quorva;

namespace {

struct Dictionary {
    ~Dictionary() { av_dict_free(&entries); }
    AVDictionary* entries = nullptr;
};

Core::Property Tree(Input& input, int depth)
{
    std::string name = input.Text(8);
    switch (input.Below(depth > 0 ? 8 : 7)) {
        case 0:
            return {};
        case 1:
            return {name, input.Flag()};
        case 2:
            return {name, input.Number<double>()};
        case 3:
            return {name, input.Number<int64_t>()};
        case 4:
            return {name, input.Number<int>()};
        case 5:
            return {name, input.Text()};
        case 6:
            return {name, input.Bytes(static_cast<size_t>(input.Below(5)))};
        default:
            break;
    }
    Core::Property group = Core::Property::Group(name);
    for (int i = input.Below(6); i > 0; --i)
        group.Add(Tree(input, depth - 1));
    return group;
}

void PutAndGet(Input& input, Dictionary& dictionary)
{
    const std::string key = input.Text(8);
    const std::string value = input.Text(40);
    Proc::PutMetadata(&dictionary.entries, key.c_str(), value);
    const AVDictionaryEntry* entry = av_dict_get(dictionary.entries, key.c_str(), nullptr, 0);
    const std::string plain = value.c_str();  // FFmpeg's end at the first zero
    Require(plain.empty() || (entry && plain == entry->value));
    Proc::GetMetadata(dictionary.entries, input.Text(3).c_str());
    Proc::AVDictionaryToStr(dictionary.entries);
}

void SetOptions(Input& input)
{
    static constexpr const char* names[] = {"srcw", "sws_flags", "src_format", "param0", "threads", ""};
    const std::unique_ptr<SwsContext, void (*)(SwsContext*)> scaler(sws_alloc_context(), sws_freeContext);
    const std::string other = input.Text(8);
    const int choice = input.Below(static_cast<int>(std::size(names)) + 1);
    const std::string name = choice < static_cast<int>(std::size(names)) ? names[choice] : other.c_str();
    Proc::AVOptSetter setter(scaler.get(), name, input.Flag() ? AV_OPT_SEARCH_CHILDREN : 0);
    Tolerate([&] { setter.Set(input.Number<int>()); });
    Tolerate([&] { setter.Set(input.Number<double>()); });
    Tolerate([&] { setter.Set(static_cast<AVPixelFormat>(input.Between(-1, AV_PIX_FMT_NB))); });
}

void Find(Input& input)
{
    std::string haystack = input.Text(40);
    const std::string needle = input.Text(4);
    const char* found = Proc::stristr(haystack.data(), needle.c_str());
    Require(found == av_stristr(haystack.c_str(), needle.c_str()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    av_log_set_level(AV_LOG_QUIET);
    Input input(data, size);
    Dictionary dictionary;
    const Core::Property tree = Tree(input, 4);
    Tolerate([&] { Proc::SetContextOptions(&dictionary.entries, tree); });
    PutAndGet(input, dictionary);
    SetOptions(input);
    Find(input);
    return 0;
}
