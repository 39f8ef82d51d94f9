#include "Installation/Installation.h"

#include "Utils/OSUtils.h"

namespace vq {

char const* GetProgramVersion() {
    return VQ_VERSION;
}

std::string FindDataDirectory(std::string const& file) {
    std::string const usual = GetDataRootPath();
    std::string const installed = GetExecutableDirectory() + VQ_INSTALLED_DATA;
    return !FileExists(usual + file) && FileExists(installed + "/" + file) ? GetFullPath(installed) + "/"
                                                                           : usual;
}

void AddVersionOption(CLI::App& commandLine, std::string const& name) {
    commandLine.set_version_flag("--version", name + " " + GetProgramVersion(), "Print the version and exit");
}

}  // namespace vq
