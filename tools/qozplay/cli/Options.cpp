// SPDX-License-Identifier: Apache-2.0
#include "qozplay/cli/Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "qozplay/media/Scene.h"

namespace qozplay {
namespace {

constexpr uint64_t kMaxFrames = 100'000'000;
constexpr uint64_t kMaxSessions = 64;
constexpr size_t kNameColumn = 34;  // characters, of a page of 100

constexpr char kFooter[] =
    "Examples:\n"
    "  qozplay -i clip.mp4 -o smooth.mkv --interp 1          twice the frame rate, losslessly\n"
    "  qozplay -i clip.mp4 -o - --upscale 2 | ffplay -       twice the size, into a pipe\n"
    "  qozplay --verify --fault queueBuf=7@20 --log          what a client sees of a refused "
    "buffer\n"
    "\nExit codes: 0 everything came through; 1 a session failed; 2 the input or an option is no\n"
    "good; 130, 143, 129 ended in order by SIGINT, SIGTERM, SIGHUP (a second one ends at once).";

// Prints only the type of an option in the help, without the options that it excludes and needs. An
// error message names these when they matter.
class OptionFormatter final : public CLI::Formatter {
    std::string make_option_opts(const CLI::Option* option) const override {
        const std::string type = option->get_type_name();
        return type.empty() ? type : " " + type;
    }
};

// Adds an option that may be given several times. `take` parses each value and throws BadInput if
// it cannot.
CLI::Option* addParsed(CLI::App& app, const std::string& name, const char* type,
                       const std::function<void(const std::string&)>& take,
                       const char* description) {
    const auto takeAll = [=](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            try {
                take(text);
            } catch (const BadInput& error) {
                throw BadInput(
                    std::string(name).append(" ").append(text).append(": ").append(error.what()));
            }
        }
    };
    return app.add_option_function<std::vector<std::string>>(name, takeAll, description)
        ->type_name(type)
        ->allow_extra_args(false);
}

// Adds an option that names a file.
CLI::Option* addFile(CLI::App& app, const std::string& name, const char* type, std::string* to,
                     const char* description) {
    return app.add_option(name, *to, description)
        ->type_name(type)
        ->check([](const std::string& file) {
            return std::string(file.empty() ? "names no file" : "");
        });
}

// Adds an option whose value `check` restricts. The type's name shows the permitted values, so the
// check's own description is removed.
template <typename To>
CLI::Option* addChecked(CLI::App& app, const std::string& name, const char* type,
                        CLI::Validator check, To* to, const char* description) {
    return app.add_option(name, *to, description)->type_name(type)->check(check.description(""));
}

qoz::host::Fault parseFaultOption(const std::string& text) {
    std::string error;
    const std::optional<qoz::host::Fault> fault = qoz::host::parseFault(text, &error);
    if (!fault) throw BadInput(error);
    return *fault;
}

std::pair<std::string, std::string> parseProperty(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw BadInput("a property looks like NAME=VALUE");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

// The following functions add the options to `app`, in the order of the help. Parsing writes their
// values to `options`, which must exist until then.
void addInput(CLI::App& app, Options& options) {
    CLI::Option* input = addFile(app, "-i,--input", "FILE", &options.input,
                                 "clip; - reads a pipe; none: a built-in scene");
    addParsed(
        app, "--size", "WxH", [&](const auto& text) { options.rawSize = parseSize(text); },
        "the input is raw RGBA frames of this size")
        ->needs(input);
    addParsed(
        app, "--rate", "N[/D]", [&](const auto& text) { options.rate = parseRate(text); },
        "frames a second of raw input and of the scene (30)");
    addChecked(app, "--frames", "N", CLI::Range(uint64_t{1}, kMaxFrames), &options.plan.frames,
               "stop after N source frames");
    addParsed(
        app, "--scene-size", "WxH", [&](const auto& text) { options.sceneSize = parseSize(text); },
        "of the built-in scene (1280x720)")
        ->excludes(input);
}

void addProcessing(CLI::App& app, Options& options) {
    CLI::Option* interp =
        addChecked(app, "--interp", "0..3", CLI::Range(0, 3), &options.plan.interp,
                   "interpolated frames for each source frame (1)");
    CLI::Option* upscale = addParsed(
        app, "--upscale", "1|1.5|2",
        [&](const auto& text) { options.plan.upscaleIndex = parseUpscale(text); },
        "output size against the source (1)");
    app.add_flag("--ais-only", options.plan.aisOnly, "double the size, interpolate no frames")
        ->excludes(interp)
        ->excludes(upscale);
    addChecked(app, "--mv", "on|off", CLI::IsMember({"on", "off"}), &options.motionVectors,
               "motion vectors for the interpolation (on)");
    addParsed(
        app, "--at", "N:CHANGE",
        [&](const auto& text) { options.plan.changes.push_back(parseChange(text)); },
        "change at source frame N: N:interp=K, N:upscale=R,\nN:size=WxH, N:flush");
}

void addOutput(CLI::App& app, Options& options) {
    addFile(
        app, "-o,--output", "FILE", &options.output,
        "clip of all processed frames: .mkv (FFV1), .mp4 or .mov\n(H.264), .y4m; - is a pipe for "
        "y4m");
    addFile(app, "--sheet", "PNG", &options.sheet, "source and interpolated frames side by side");
    addChecked(app, "--sheet-at", "N", CLI::Range(uint64_t{0}, kMaxFrames), &options.sheetAt,
               "source frame in the middle of the sheet");
    addFile(app, "--vectors", "PNG", &options.vectors, "that frame with its motion vectors");
    addFile(app, "--trace", "JSON", &options.trace, "trace of the run");
    addFile(app, "--stats", "JSON", &options.stats, "figures of the run");
}

void addHost(CLI::App& app, Options& options) {
    addChecked(app, "--sessions", "N", CLI::Range(uint64_t{1}, kMaxSessions), &options.sessions,
               "sessions on the same clip at the same time (1)");
    addChecked(app, "--service", "inline|process", CLI::IsMember({"inline", "process"}),
               &options.service, "run the service in this process or in another (inline)");
    addParsed(
        app, "--fault", "OP=CODE@N",
        [&](const auto& text) { options.faults.push_back(parseFaultOption(text)); },
        "break the Nth call of an operation; in place of a code:\ndrop, late:MS, twice, "
        "unknown, keep:CODE, swap, stray,\ntransport, within, die");
    addParsed(
        app, "--prop", "NAME=VALUE",
        [&](const auto& text) { options.properties.push_back(parseProperty(text)); },
        "set a system property");
    addParsed(
        app, "--log", "[\"TAG:PRIORITY ...\"]",
        [&](const auto& text) { options.log = LogFilter::parse(text); },
        "show the log: all of it, or what a filter as logcat's\nlets through")
        ->expected(0, 1);
}

void addChecks(CLI::App& app, Options& options) {
    app.add_flag("--verify", options.plan.verify,
                 "check every frame and buffer; stop at the first that is\nwrong, and fail");
    CLI::Option* truth = addChecked(
        app, "--truth", "2..4", CLI::Range(2, 4), &options.truth,
        "give every Nth frame, interpolate the others, and score\nthem against those of the clip");
    for (const char* other :
         {"--interp", "--upscale", "--ais-only", "--at", "--sessions", "--vectors"}) {
        truth->excludes(app.get_option(other));
    }
    addParsed(
        app, "--budget", "NAME=BOUND,...",
        [&](const auto& text) { options.budget.push_back(parseLimit(text)); },
        "fail when a figure is beyond its bound, as p95=8ms,lost=0;\nof p50, p90, p95, p99, "
        "max, blocked, lost, missing, refused,\nflushed, source, interpolated, fps")
        ->delimiter(',');
}

// Checks the combination of the options. Throws BadInput.
void check(const Options& options) {
    const bool scene = options.input.empty();
    if (!scene && !options.rawSize && options.rate) {
        throw BadInput("--rate is for raw input and the scene; a clip has its own");
    }
    if (std::min(options.sceneSize.width, options.sceneSize.height) < Scene::kMinSide) {
        throw BadInput(format("--scene-size: no side may be below %u", Scene::kMinSide));
    }
    for (const Change& change : options.plan.changes) {
        if ((change.interp || change.upscale) && options.plan.aisOnly)
            throw BadInput("--ais-only goes with neither interp nor upscale");
        if (change.size && isThin(*change.size) && options.motionVectors) {
            throw BadInput(format("--at %llu:", big(change.frame)) + change.text +
                           ": with motion vectors no side is below 2; --mv off takes it");
        }
    }
    if (!options.vectors.empty() && (!options.motionVectors || options.plan.interp == 0)) {
        throw BadInput("--vectors needs motion vectors and an --interp of 1 or more");
    }
    std::error_code error;
    const bool again = scene || std::filesystem::is_regular_file(options.input, error) ||
                       (options.input != "-" && !std::filesystem::exists(options.input, error));
    if (options.sessions > 1 && !again) throw BadInput("--sessions: a pipe can be read only once");
}

}  // namespace

Options parseOptions(int argc, const char* const argv[], std::string* answer) {
    Options options;
    CLI::App app("Plays a clip through the video post-processor: more and larger frames come out.",
                 "qozplay");
    app.formatter(std::make_shared<OptionFormatter>());
    app.get_formatter()->column_width(kNameColumn);
    app.set_version_flag("--version", "qozplay " QOZ_VERSION, "say which version this is");
    app.set_help_flag("-h,--help", "say all this");
    app.footer(kFooter);
    addInput(app, options);
    addProcessing(app, options);
    addOutput(app, options);
    addHost(app, options);
    addChecks(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        *answer = app.help();
        return options;
    } catch (const CLI::CallForVersion& version) {
        *answer = std::string(version.what()) + "\n";
        return options;
    } catch (const CLI::ExtrasError& error) {
        throw BadInput(std::string(error.what()) +
                       "; a clip is named by -i, and --help lists all options");
    } catch (const CLI::ParseError& error) {
        throw BadInput(error.what());
    }
    if (options.plan.aisOnly) options.plan.interp = 0;
    if (options.truth) {
        options.plan.interp = *options.truth - 1;
        if (options.plan.frames)
            options.plan.frames = (*options.plan.frames + *options.truth - 1) / *options.truth;
    }
    check(options);
    return options;
}

}  // namespace qozplay
