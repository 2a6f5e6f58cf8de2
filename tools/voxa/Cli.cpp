#include "Cli.h"

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <android/log.h>

#include <memory>

#include "Formatters.h"
#include "Options.h"
#include "Outcome.h"
#include "Progress.h"
#include "ServiceLoader.h"
#include "Transcriber.h"

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::IVoxa;

namespace {

Outcome listLanguages(IVoxa& service, std::ostream& out) {
    std::vector<std::string> languages;
    ndk::ScopedAStatus status = service.getSupportedLanguages(0, &languages);
    if (!status.isOk()) {
        return Outcome::failure("getSupportedLanguages failed (" + errorName(status) + ")");
    }
    for (const std::string& language : languages) out << language << "\n";
    return Outcome::success();
}

Outcome runCommand(const Options& options, std::ostream& out, std::ostream& err,
                   bool errIsTerminal) {
    std::shared_ptr<IVoxa> service;
    std::string problem = loadService(options.library, &service);
    if (!problem.empty()) return Outcome::failure(problem);
    if (options.command == Command::Languages) return listLanguages(*service, out);

    std::unique_ptr<Formatter> formatter = makeFormatter(options.format, out);
    Progress progress(err, errIsTerminal && options.progress);
    Transcriber transcriber(service, formatter.get(), &progress);
    return transcriber.run(options);
}

}  // namespace

int runVoxa(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
            bool errIsTerminal) {
    Options options;
    std::string problem = parseOptions(args, &options);
    if (!problem.empty()) {
        err << "voxa: " << problem << "\n";
        return kExitUsage;
    }
    switch (options.command) {
        case Command::Help:
            out << usage();
            return kExitOk;
        case Command::Version:
            out << "voxa " << VOXA_VERSION << " (" << IVoxa::descriptor << " version "
                << IVoxa::version << ")\n";
            return kExitOk;
        case Command::Transcribe:
        case Command::Languages:
            break;
    }

    __android_log_set_minimum_priority(options.verbose ? ANDROID_LOG_VERBOSE : ANDROID_LOG_SILENT);
    Outcome outcome = runCommand(options, out, err, errIsTerminal);
    out.flush();
    if (!outcome.ok()) err << "voxa: " << outcome.message << "\n";
    return outcome.exitCode;
}

}  // namespace voxa_tool
