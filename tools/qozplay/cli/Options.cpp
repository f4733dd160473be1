#include "qozplay/cli/Options.h"

#include "qozplay/media/Scene.h"
#include "qozplay/report/Budget.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace qozplay {
namespace {

constexpr uint64_t kMaxFrames = 100'000'000;
constexpr uint64_t kMaxSessions = 64;

// Values as typed; what they mean is checked by our own parsers, whose messages name the option.
struct Words {
    std::optional<std::string> size, rate, frames, sceneSize, sheetAt;
    std::optional<std::string> interp, upscale, mv, max, sessions, service, truth, log;
    std::vector<std::string> at, faults, properties, budgets;
};

void addInput(CLI::App& app, Options& options, Words& words) {
    app.add_option("-i,--input", options.input,
                   "y4m clip, or raw RGBA with --size; - reads a pipe; none: a built-in scene")
        ->type_name("FILE");
    app.add_option("--size", words.size, "of raw RGBA input")->type_name("WxH");
    app.add_option("--rate", words.rate, "frames a second of raw input and of the scene (30)")
        ->type_name("N[/D]");
    app.add_option("--frames", words.frames, "stop after N source frames")->type_name("N");
    app.add_option("--scene-size", words.sceneSize, "of the built-in scene (1280x720)")
        ->type_name("WxH");
}

void addProcessing(CLI::App& app, Options& options, Words& words) {
    app.add_option("--interp", words.interp, "interpolated frames for each source frame (1)")
        ->type_name("0..3");
    app.add_option("--upscale", words.upscale, "output size against the source")
        ->type_name("1|1.5|2");
    app.add_flag("--ais-only", options.aisOnly, "double the size, make no frames");
    app.add_option("--mv", words.mv, "motion vectors for the interpolation (on)")
        ->type_name("on|off");
    app.add_option("--max", words.max, "larger sources are scaled down to this")->type_name("WxH");
    app.add_option("--at", words.at,
                   "change at a source frame: N:interp=K, N:upscale=R, N:size=WxH, N:flush")
        ->type_name("N:CHANGE")
        ->allow_extra_args(false);
}

void addOutput(CLI::App& app, Options& options, Words& words) {
    app.add_option("-o,--output", options.output, "y4m file of all processed frames; - is a pipe")
        ->type_name("FILE");
    app.add_option("--sheet", options.sheet, "PNG of source and interpolated frames side by side")
        ->type_name("PNG");
    app.add_option("--sheet-at", words.sheetAt, "source frame in the middle of the sheet")
        ->type_name("N");
    app.add_option("--trace", options.trace, "trace of the run as JSON")->type_name("JSON");
    app.add_option("--stats", options.stats, "figures of the run as JSON")->type_name("JSON");
    app.add_option("--sessions", words.sessions, "sessions on the same clip at the same time")
        ->type_name("N");
    app.add_option("--service", words.service,
                   "where the service runs: in this process or in one of its own (inline)")
        ->type_name("inline|process");
    app.add_option("--fault", words.faults,
                   "break the Nth call of an operation; in place of a code: drop, late:MS, twice, "
                   "unknown, keep:CODE, swap, stray, transport, die")
        ->type_name("OP=CODE@N")
        ->allow_extra_args(false);
    app.add_option("--prop", words.properties, "set a system property")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    app.add_option("--log", words.log,
                   "show the log: all of it, or what a filter as logcat's lets through")
        ->type_name("[\"TAG:PRIORITY ...\"]")
        ->expected(0, 1);
}

void addChecks(CLI::App& app, Options& options, Words& words) {
    app.add_flag("--verify", options.verify,
                 "check every frame and buffer; stop and fail at the first that is wrong");
    app.add_option("--truth", words.truth,
                   "give every Nth frame, make the others again, and score them")
        ->type_name("2..4");
    app.add_option("--budget", words.budgets,
                   "fail when a figure is beyond its bound: p95=8ms,lost=0; of " + budgetNames())
        ->type_name("NAME=BOUND,...")
        ->allow_extra_args(false);
    app.add_option("--vectors", options.vectors,
                   "PNG of the frame of --sheet-at with its motion vectors")
        ->type_name("PNG");
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

bool parseSwitch(const std::string& text, const std::string& what) {
    if (text == "on") return true;
    if (text == "off") return false;
    throw BadInput(what + ": " + text + " is neither on nor off");
}

bool parseService(const std::string& text) {
    if (text == "process") return true;
    if (text == "inline") return false;
    throw BadInput("--service: " + text + " is neither inline nor process");
}

void readInput(const Words& words, Options* options) {
    if (words.size) options->rawSize = parseSize(*words.size, "--size");
    if (words.rate) options->rate = parseRate(*words.rate, "--rate");
    if (words.frames) {
        options->frames = parseNumber(*words.frames, kMaxFrames, "--frames");
    }
    if (words.sceneSize) options->sceneSize = parseSize(*words.sceneSize, "--scene-size");
    if (words.sheetAt) {
        options->sheetAt = parseNumber(*words.sheetAt, kMaxFrames, "--sheet-at");
    }
}

void readProcessing(const Words& words, Options* options) {
    if (words.interp) options->interp = parseInterp(*words.interp, "--interp");
    if (words.upscale) options->upscaleIndex = parseUpscale(*words.upscale, "--upscale");
    if (words.mv) options->motionVectors = parseSwitch(*words.mv, "--mv");
    if (words.max) options->max = parseSize(*words.max, "--max");
    if (words.sessions) {
        options->sessions =
            static_cast<uint32_t>(parseNumber(*words.sessions, kMaxSessions, "--sessions"));
    }
    if (words.log) options->log = LogFilter::parse(*words.log);
    if (words.service) options->serviceProcess = parseService(*words.service);
    for (const std::string& text : words.at) {
        options->changes.push_back(parseChange(text));
    }
    for (const std::string& text : words.faults) {
        options->faults.push_back(parseFaultOption(text));
    }
    for (const std::string& text : words.properties) {
        options->properties.push_back(parseProperty(text));
    }
}

void readChecks(const Words& words, Options* options) {
    if (words.truth) {
        const uint64_t step = parseNumber(*words.truth, 4, "--truth");
        if (step < 2) throw BadInput("--truth: with " + *words.truth + " no frame is held out");
        options->truth = static_cast<uint32_t>(step);
        options->interp = *options->truth - 1;
        if (options->frames) options->frames = (*options->frames + step - 1) / step;
    }
    for (const std::string& text : words.budgets) {
        const std::vector<Limit> limits = parseBudget(text);
        options->budget.insert(options->budget.end(), limits.begin(), limits.end());
    }
}

// Frames are compared as they are, and at their own times.
void checkReferences(const Words& words, const Options& options) {
    if (!options.truth) return;
    const bool changed = words.interp || words.upscale || options.aisOnly || options.max ||
                         !options.changes.empty() || options.sessions > 1;
    if (changed) {
        throw BadInput(
            "--truth sets the factor itself, and goes with no other size, no --at and one session");
    }
}

void checkVectors(const Options& options) {
    if (options.vectors.empty()) return;
    if (!options.motionVectors || options.interp == 0 || options.truth) {
        throw BadInput("--vectors needs motion vectors, an interp of 1 or more, and no --truth");
    }
}

void checkInput(const Words& words, const Options& options) {
    const bool scene = options.input.empty();
    if (scene && options.rawSize) throw BadInput("--size describes raw input, and there is none");
    if (!scene && words.sceneSize) {
        throw BadInput("--scene-size is for the built-in scene, not for " + options.input);
    }
    if (!scene && !options.rawSize && options.rate) {
        throw BadInput("--rate is for raw input and the scene; a y4m clip has its own");
    }
    if (options.frames == 0U) throw BadInput("--frames 0 leaves nothing to do");
    const Size size = options.sceneSize;
    if (std::min(size.width, size.height) < Scene::kMinSide) {
        throw BadInput(format("--scene-size: no side may be below %u", Scene::kMinSide));
    }
    if (options.sessions == 0) throw BadInput("--sessions 0 leaves nothing to do");
    const bool again = options.sessions > 1 || !options.vectors.empty();
    if (again && options.input == "-") {
        throw BadInput("--sessions, --vectors: a pipe can be read only once");
    }
}

// Doubling alone takes none of the settings of the other way of working.
void checkAisOnly(const Words& words, Options* options) {
    if (!options->aisOnly) return;
    const bool changed =
        std::any_of(options->changes.begin(), options->changes.end(), [](const Change& change) {
            return change.kind == Change::Kind::Interp || change.kind == Change::Kind::Upscale;
        });
    if (changed || words.interp || words.upscale) {
        throw BadInput("--ais-only goes with neither interp nor upscale");
    }
    options->interp = 0;
}

}  // namespace

Options parseOptions(int argc, const char* const argv[], std::string* help) {
    Options options;
    Words words;
    CLI::App app("Plays a clip through the video post-processor: more and larger frames come out.",
                 "qozplay");
    addInput(app, options, words);
    addProcessing(app, options, words);
    addOutput(app, options, words);
    addChecks(app, options, words);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        *help = app.help();
        return options;
    } catch (const CLI::ParseError& error) {
        throw BadInput(error.what());
    }
    if (app.count("--input") > 0 && options.input.empty()) throw BadInput("-i names no file");
    readInput(words, &options);
    readProcessing(words, &options);
    readChecks(words, &options);
    checkInput(words, options);
    checkAisOnly(words, &options);
    checkReferences(words, options);
    checkVectors(options);
    return options;
}

}  // namespace qozplay
