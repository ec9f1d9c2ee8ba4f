#include "tools/InputOptions.h"

#include "tools/support/FurtherFiles.h"

#include <CLI/CLI.hpp>

namespace Quorva::Tool {

void AddInputOptions(CLI::App& command, InputOptions& options, const std::string& group)
{
    CLI::Option* outside =
        command.add_flag("--allow-outside", options.allowOutside,
                         "Let a playlist name files outside its own folder; default: only in and below it");
    if (!group.empty())
        outside->group(group);
}

void ApplyInputOptions(const InputOptions& options)
{
    FurtherFilesPolicy policy = FurtherFiles::GetPolicy();
    policy.allowOutside = options.allowOutside;
    FurtherFiles::SetPolicy(policy);
}

}  // namespace Quorva::Tool
