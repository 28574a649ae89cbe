// `ixocut completion` and `ixocut manual`: what the packages install of them, and what somebody's own program has of
// its own rows.
#include "commandline/Help.h"
#include "ixocamglue/platform/xml/FileLayer.h"
#include "ixocut/Command.h"

namespace ixocut {

void AddHelpCommands(TCommand program) {
  const auto shell = std::make_shared<std::string>();
  const TCommand completion = program.Add(
      "completion", Tr("Print the script by which a shell completes this program's words"), [shell, program] {
        std::cout << (*shell == "bash" ? BashCompletion(program) : ZshCompletion(program));
        return kExitSuccess;
      });
  completion.Text("SHELL", *shell, Tr("bash or zsh"), "TEXT").Required().OneOf({"bash", "zsh"});
  completion.Help({.Notes = Tr("The packages install both. For this terminal alone: source <(ixocut completion bash)"),
                   .Examples = {"ixocut completion bash", "ixocut completion zsh --lang en"}});

  const auto folder = std::make_shared<std::string>();
  const TCommand manual =
      program.Add("manual", Tr("Write the manual pages of this program into a folder"), [folder, program] {
        for (const TManPage& page : ManPages(program, "ixocut " IXO_VERSION))
          ReplaceOrThrow(std::filesystem::path(*folder) / page.File, page.Text);
        return kExitSuccess;
      });
  manual.Text("DIR", *folder, Tr("The folder, which is there"), "").Required();
  manual.Help({.Notes = Tr("One page for the program and one for each command, in the language of --lang. The "
                           "packages install them:\nman ixocut, man ixocut-gas. Files of these names are replaced."),
               .Examples = {"ixocut manual . --lang en"}});
}

}  // namespace ixocut
