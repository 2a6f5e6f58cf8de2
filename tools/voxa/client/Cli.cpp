#include "Cli.h"

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <android/binder_manager.h>
#include <android/log.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "Formatter.h"
#include "Options.h"
#include "Output.h"
#include "Progress.h"
#include "Status.h"
#include "Transcriber.h"

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::IVoxa;
using aidl::vendor::orbo::hardware::voxa::TranscriptionMode;

namespace {

Status supportedLanguages(IVoxa& service, std::vector<std::string>* rows) {
    ndk::ScopedAStatus status = service.getSupportedLanguages(0, rows);
    if (!status.isOk()) {
        return Status::failure("getSupportedLanguages failed (" + errorName(status) + ")");
    }
    return Status::ok();
}

// The code of a row "english : en-US".
std::string codeOf(const std::string& row) {
    const size_t colon = row.rfind(" : ");
    return colon == std::string::npos ? row : row.substr(colon + 3);
}

bool contains(const std::vector<std::string>& codes, const std::string& code) {
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

Status listLanguages(IVoxa& service, Host& host, std::ostream& out) {
    std::vector<std::string> rows;
    Status status = supportedLanguages(service, &rows);
    if (!status.isOk()) return status;
    const EngineLanguages engine = host.languages();
    for (const std::string& row : rows) {
        const std::string code = codeOf(row);
        std::vector<std::string> marks;
        if (contains(engine.recognised, code)) marks.push_back("recognised");
        if (contains(engine.translatedTo, code)) marks.push_back("translation target");
        out << row;
        for (size_t i = 0; i < marks.size(); ++i) out << (i == 0 ? " (" : ", ") << marks[i];
        out << (marks.empty() ? "\n" : ")\n");
    }
    return Status::ok();
}

// Replaces `*code` by the service's spelling of it, matched without regard to case.
Status canonicalLanguage(const std::vector<std::string>& rows, std::string* code) {
    for (const std::string& row : rows) {
        const std::string known = codeOf(row);
        if (strcasecmp(known.c_str(), code->c_str()) == 0) {
            *code = known;
            return Status::ok();
        }
    }
    return Status::failure("the service knows no language " + *code +
                           "; voxa languages lists them");
}

Status transcribe(const std::shared_ptr<IVoxa>& service, Host& host, Options options,
                  const Console& console) {
    std::vector<std::string> rows;
    Status status = supportedLanguages(*service, &rows);
    if (status.isOk()) status = canonicalLanguage(rows, &options.language);
    if (status.isOk() && !options.translateTo.empty()) {
        status = canonicalLanguage(rows, &options.translateTo);
    }
    if (!status.isOk()) return status;

    const bool toConsole = options.outputs.front().empty();
    FormatSettings settings;
    settings.format = options.format;
    settings.timestamps = options.timestamps;
    settings.diarize = options.diarize;
    if (!options.translateTo.empty()) settings.translatedFrom = options.language;
    settings.markBelow = options.markBelow;
    settings.liveTerminal = toConsole && console.outIsTerminal && options.realtime &&
                            options.format == Format::Text;
    if (settings.liveTerminal && !options.modeGiven) {
        options.mode = TranscriptionMode::PARTIAL_CONTINUOUS;
    }
    std::unique_ptr<Formatter> formatter = makeFormatter(settings, console.out);
    StreamOutput streamOutput(formatter.get());
    FileOutput fileOutput(options, settings);
    // The partial result's line and the progress bar would share a terminal.
    Progress progress(console.err, console.errIsTerminal && options.progress &&
                                           !(settings.liveTerminal && console.errIsTerminal));
    Transcriber transcriber(service, &host, &progress, console.err);
    return transcriber.run(options, toConsole ? static_cast<Output*>(&streamOutput) : &fileOutput);
}

}  // namespace

Status dumpService(IVoxa& service, int fd) {
    binder_status_t status = AIBinder_dump(service.asBinder().get(), fd, nullptr, 0);
    if (status != STATUS_OK) return Status::failure("dump failed (" + std::to_string(status) + ")");
    return Status::ok();
}

Status connectToService(Host& host, const std::string& library, std::shared_ptr<IVoxa>* service) {
    Status status = host.startService(library);
    if (!status.isOk()) return status;
    const std::string instance = std::string(IVoxa::descriptor) + "/default";
    *service = IVoxa::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
    if (*service == nullptr) return Status::failure("no " + instance + " in the service manager");
    return Status::ok();
}

int runVoxa(const std::vector<std::string>& args, const HostMaker& makeHost,
            const Console& console) {
    Options options;
    Status status = parseOptions(args, &options);
    if (status.isOk()) {
        switch (options.command) {
            case Command::Help:
                console.out << usage();
                return kExitOk;
            case Command::Version:
                console.out << "voxa " << VOXA_VERSION << " (" << IVoxa::descriptor << " version "
                            << IVoxa::version << ")\n";
                return kExitOk;
            case Command::Transcribe:
            case Command::Replay:
            case Command::Languages:
            case Command::Dump:
                break;
        }
        __android_log_set_minimum_priority(options.verbose ? ANDROID_LOG_VERBOSE
                                                           : ANDROID_LOG_SILENT);
        std::unique_ptr<Host> host;
        std::shared_ptr<IVoxa> service;
        status = options.outputs.empty() ? Status::ok() : prepareOutputs(options);
        if (status.isOk()) status = makeHost(options.command, &host);
        if (status.isOk()) status = connectToService(*host, options.library, &service);
        if (status.isOk()) {
            switch (options.command) {
                case Command::Languages:
                    status = listLanguages(*service, *host, console.out);
                    break;
                case Command::Dump:
                    console.out.flush();
                    status = dumpService(*service, STDOUT_FILENO);
                    break;
                default:
                    status = transcribe(service, *host, options, console);
                    break;
            }
        }
    }
    console.out.flush();
    if (!status.message().empty()) console.err << "voxa: " << status.message() << "\n";
    return status.exitCode();
}

}  // namespace voxa_tool
