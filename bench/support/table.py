# SPDX-License-Identifier: Apache-2.0
"""Makes the table of results from the output of the benches."""

BEGIN = "<!-- figures of bench/run: begin -->"
END = "<!-- figures of bench/run: end -->"

HEAD = ["", "ours", "against", "ratio", "spread", "aim", "met"]
SHOWN = {"ours_ns", "peer_ns", "ratio", "ratio_min", "ratio_max", "rounds", "aim", "limit_ns",
         "ours_min_ns", "ours_max_ns", "components", "bench", "name", "ratios"}
OF_LIBRARY = {"name", "run_name", "run_type", "family_index", "per_family_instance_index",
              "repetitions", "repetition_index", "threads", "iterations", "real_time", "cpu_time",
              "time_unit", "label"}
OF_ROUND = "ratio_of_round_"


def row(bench, found):
    """Makes a row from the result of one run of Google Benchmark."""
    if found.get("error_occurred"):
        raise ValueError(found.get("error_message"))
    values = {key: value for key, value in found.items()
              if key not in OF_LIBRARY and not key.startswith(OF_ROUND)}
    if "ratio" in found:
        values["ratios"] = [found[f"{OF_ROUND}{n}"] for n in range(int(found["rounds"]))]
    return {"bench": bench, "name": found["label"], **values}


def duration(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def share(ratio):
    """Formats a ratio. Ratios far below 1 are shown in percent."""
    return f"{ratio:.2f}" if ratio >= 0.1 else f"{ratio * 100:.2f} %"


def cells(one):
    ours = duration(one["ours_ns"])
    if "limit_ns" in one:
        spread = f"{duration(one['ours_min_ns'])} .. {duration(one['ours_max_ns'])}"
        met = "yes" if one["ours_ns"] <= one["limit_ns"] else "no"
        return [one["name"], ours, "-", "-", spread, duration(one["limit_ns"]), met]
    spread = f"{share(one['ratio_min'])} .. {share(one['ratio_max'])}"
    aim = met = "-"
    if "aim" in one:
        aim = share(one["aim"])
        met = "yes" if one["ratio"] <= one["aim"] else "no"
    return [one["name"], ours, duration(one["peer_ns"]), share(one["ratio"]), spread, aim, met]


def besides(one):
    """Formats the further values of a bench, which are listed below the table."""
    found = []
    for key, value in one.items():
        if key in SHOWN:
            continue
        word = key.removesuffix("_ns").replace("_", " ")
        found.append(f"{word} {duration(value) if key.endswith('_ns') else f'{value:g}'}")
    return ", ".join(found)


def text(rows, where):
    lines = [HEAD] + [cells(one) for one in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(HEAD))]
    lines.insert(1, ["-" * width for width in widths])
    made = [f"{where['cores']} cores, {where['compiler']}; medians of rounds, spread from the least "
            "to the largest.", ""]
    made += ["| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |"
             for line in lines]
    notes = [f"- {one['name']}: {besides(one)}" for one in rows if besides(one)]
    return "\n".join(made + ([""] + notes if notes else []))


def has_marks(path):
    return path.is_file() and BEGIN in path.read_text() and END in path.read_text()


def write(path, made):
    whole = path.read_text()
    before = whole[:whole.index(BEGIN) + len(BEGIN)]
    path.write_text(f"{before}\n\n{made}\n\n{whole[whole.index(END):]}")
