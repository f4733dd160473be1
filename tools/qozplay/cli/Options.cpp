// SPDX-License-Identifier: Apache-2.0
#include "qozplay/cli/Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>

#include "qozplay/media/Scene.h"
#include "qozplay/report/Budget.h"

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

// Names an option with its type alone: what it excludes and needs is said when it matters.
class OptionFormatter final : public CLI::Formatter {
    std::string make_option_opts(const CLI::Option* option) const override {
        const std::string type = option->get_type_name();
        return type.empty() ? type : " " + type;
    }
};

// A validator whose range the type's name already tells.
CLI::Validator quietly(CLI::Validator validator) {
    return validator.description("");
}

// An option whose value `read` understands, or throws BadInput for; it may be given several times.
template <typename Read>
CLI::Option* addParsed(CLI::App& app, const std::string& name, const char* type, Read read,
                       const char* description) {
    return app
        .add_option_function<std::vector<std::string>>(
            name,
            [read](const std::vector<std::string>& texts) {
                for (const std::string& text : texts)
                    read(text);
            },
            description)
        ->type_name(type)
        ->allow_extra_args(false);
}

void addInput(CLI::App& app, Options& options) {
    CLI::Option* input =
        app.add_option("-i,--input", options.input, "clip; - reads a pipe; none: a built-in scene")
            ->type_name("FILE")
            ->check([](const std::string& name) {
                return std::string(name.empty() ? "names no file" : "");
            });
    addParsed(
        app, "--size", "WxH",
        [&](const std::string& text) { options.rawSize = parseSize(text, "--size"); },
        "the input is raw RGBA frames of this size")
        ->needs(input);
    addParsed(
        app, "--rate", "N[/D]",
        [&](const std::string& text) { options.rate = parseRate(text, "--rate"); },
        "frames a second of raw input and of the scene (30)");
    app.add_option("--frames", options.frames, "stop after N source frames")
        ->type_name("N")
        ->check(quietly(CLI::Range(uint64_t{1}, kMaxFrames)));
    addParsed(
        app, "--scene-size", "WxH",
        [&](const std::string& text) { options.sceneSize = parseSize(text, "--scene-size"); },
        "of the built-in scene (1280x720)")
        ->excludes(input);
}

void addProcessing(CLI::App& app, Options& options) {
    CLI::Option* interp =
        app.add_option("--interp", options.interp, "interpolated frames for each source frame (1)")
            ->type_name("0..3")
            ->check(quietly(CLI::Range(0, 3)));
    CLI::Option* upscale = addParsed(
        app, "--upscale", "1|1.5|2",
        [&](const std::string& text) { options.upscaleIndex = parseUpscale(text, "--upscale"); },
        "output size against the source (1)");
    app.add_flag("--ais-only", options.aisOnly, "double the size, interpolate no frames")
        ->excludes(interp)
        ->excludes(upscale);
    addParsed(
        app, "--mv", "on|off",
        [&](const std::string& text) { options.motionVectors = text == "on"; },
        "motion vectors for the interpolation (on)")
        ->check(quietly(CLI::IsMember({"on", "off"})));
    addParsed(
        app, "--max", "WxH",
        [&](const std::string& text) { options.max = parseSize(text, "--max"); },
        "larger sources are scaled down to this");
    addParsed(
        app, "--at", "N:CHANGE",
        [&](const std::string& text) { options.changes.push_back(parseChange(text)); },
        "change at source frame N: N:interp=K, N:upscale=R,\nN:size=WxH, N:flush");
}

void addOutput(CLI::App& app, Options& options) {
    app.add_option("-o,--output", options.output,
                   "clip of all processed frames: .mkv (FFV1), .mp4 or .mov\n(H.264), .y4m; - is a "
                   "pipe for y4m")
        ->type_name("FILE");
    app.add_option("--sheet", options.sheet, "source and interpolated frames side by side")
        ->type_name("PNG");
    app.add_option("--sheet-at", options.sheetAt, "source frame in the middle of the sheet")
        ->type_name("N")
        ->check(quietly(CLI::Range(uint64_t{0}, kMaxFrames)));
    app.add_option("--vectors", options.vectors, "that frame with its motion vectors")
        ->type_name("PNG");
    app.add_option("--trace", options.trace, "trace of the run")->type_name("JSON");
    app.add_option("--stats", options.stats, "figures of the run")->type_name("JSON");
}

qoz::host::Fault parseFaultOption(const std::string& text) {
    std::string error;
    const std::optional<qoz::host::Fault> fault = qoz::host::parseFault(text, &error);
    if (!fault) throw BadInput("--fault " + text + ": " + error);
    return *fault;
}

std::pair<std::string, std::string> parseProperty(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw BadInput("--prop " + text + ": a property looks like NAME=VALUE");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

void addHost(CLI::App& app, Options& options) {
    app.add_option("--sessions", options.sessions, "sessions on the same clip at the same time (1)")
        ->type_name("N")
        ->check(quietly(CLI::Range(uint64_t{1}, kMaxSessions)));
    addParsed(
        app, "--service", "inline|process",
        [&](const std::string& text) { options.serviceProcess = text == "process"; },
        "run the service in this process or in another (inline)")
        ->check(quietly(CLI::IsMember({"inline", "process"})));
    addParsed(
        app, "--fault", "OP=CODE@N",
        [&](const std::string& text) { options.faults.push_back(parseFaultOption(text)); },
        "break the Nth call of an operation; in place of a code:\ndrop, late:MS, twice, "
        "unknown, keep:CODE, swap, stray,\ntransport, within, die");
    addParsed(
        app, "--prop", "NAME=VALUE",
        [&](const std::string& text) { options.properties.push_back(parseProperty(text)); },
        "set a system property");
    app.add_option_function<std::string>(
           "--log", [&](const std::string& text) { options.log = LogFilter::parse(text); },
           "show the log: all of it, or what a filter as logcat's\nlets through")
        ->type_name("[\"TAG:PRIORITY ...\"]")
        ->expected(0, 1);
}

void addChecks(CLI::App& app, Options& options) {
    app.add_flag("--verify", options.verify,
                 "check every frame and buffer; stop at the first that is\nwrong, and fail");
    CLI::Option* truth = app.add_option("--truth", options.truth,
                                        "give every Nth frame, interpolate the others, and score\n"
                                        "them against those of the clip")
                             ->type_name("2..4")
                             ->check(quietly(CLI::Range(2, 4)));
    for (const char* other :
         {"--interp", "--upscale", "--ais-only", "--max", "--at", "--sessions", "--vectors"}) {
        truth->excludes(app.get_option(other));
    }
    addParsed(
        app, "--budget", "NAME=BOUND,...",
        [&](const std::string& text) {
            const std::vector<Limit> limits = parseBudget(text);
            options.budget.insert(options.budget.end(), limits.begin(), limits.end());
        },
        "fail when a figure is beyond its bound, as p95=8ms,lost=0;\nof p50, p90, p95, p99, "
        "max, blocked, lost, missing, refused,\nflushed, source, interpolated, fps");
}

// What the options mean together.
void check(const Options& options) {
    const bool scene = options.input.empty();
    if (!scene && !options.rawSize && options.rate) {
        throw BadInput("--rate is for raw input and the scene; a clip has its own");
    }
    if (std::min(options.sceneSize.width, options.sceneSize.height) < Scene::kMinSide) {
        throw BadInput(format("--scene-size: no side may be below %u", Scene::kMinSide));
    }
    const bool changed = std::ranges::any_of(options.changes, [](const Change& change) {
        return change.kind == Change::Kind::Interp || change.kind == Change::Kind::Upscale;
    });
    if (options.aisOnly && changed) {
        throw BadInput("--ais-only goes with neither interp nor upscale");
    }
    if (!options.vectors.empty() && (!options.motionVectors || options.interp == 0)) {
        throw BadInput("--vectors needs motion vectors and an --interp of 1 or more");
    }
    if (options.sessions > 1 && options.input == "-") {
        throw BadInput("--sessions: a pipe can be read only once");
    }
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
    } catch (const CLI::ParseError& error) {
        throw BadInput(error.what());
    }
    if (options.aisOnly) options.interp = 0;
    if (options.truth) {
        options.interp = *options.truth - 1;
        if (options.frames)
            options.frames = (*options.frames + *options.truth - 1) / *options.truth;
    }
    check(options);
    return options;
}

}  // namespace qozplay
