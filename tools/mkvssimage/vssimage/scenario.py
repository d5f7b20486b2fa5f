"""Scenario files: the volume, its steps of file operations and the snapshots between them."""
import calendar
import json
import os
import re
import time

# Directory of the scenarios that come with the tool.
BUILT_IN_DIRECTORY = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "scenarios")
# Clock of a scenario that names none.
DEFAULT_CLOCK = "2024-01-02 03:04:05"
# Seconds the clock moves on between two steps.
STEP_SECONDS = 60
SUFFIXES = {"": 1, "K": 1 << 10, "M": 1 << 20, "G": 1 << 30, "T": 1 << 40}


class ScenarioError(Exception):
    """A scenario file is malformed."""


def parse_size(value):
    """Bytes from an integer or a text like "64M", "1T"."""
    if isinstance(value, int):
        return value
    match = re.fullmatch(r"\s*(\d+)\s*([KMGT]?)i?B?\s*", str(value), re.IGNORECASE)
    if match is None:
        raise ScenarioError("bad size %r" % value)
    return int(match.group(1)) * SUFFIXES[match.group(2).upper()]


def built_in_names():
    return sorted(name[:-5] for name in os.listdir(BUILT_IN_DIRECTORY) if name.endswith(".json"))


def load(name_or_path):
    """A scenario by built-in name or by file path."""
    path = name_or_path
    if not os.path.exists(path):
        path = os.path.join(BUILT_IN_DIRECTORY, name_or_path + ".json")
    if not os.path.exists(path):
        raise ScenarioError("no scenario %r (built in: %s)" % (name_or_path, ", ".join(built_in_names())))
    with open(path) as handle:
        scenario = json.load(handle)
    scenario.setdefault("name", os.path.splitext(os.path.basename(path))[0])
    validate(scenario)
    return scenario


def validate(scenario):
    for key in ("volume_size", "steps"):
        if key not in scenario:
            raise ScenarioError("scenario %s lacks %r" % (scenario["name"], key))
    if not any("snapshot" in step for step in scenario["steps"]):
        raise ScenarioError("scenario %s takes no snapshot" % scenario["name"])
    for step in scenario["steps"]:
        if ("snapshot" in step) == ("ops" in step):
            raise ScenarioError("each step is either {\"ops\": [...]} or {\"snapshot\": {...}}: %r" % step)


def clock_seconds(scenario):
    text = scenario.get("clock", DEFAULT_CLOCK)
    return calendar.timegm(time.strptime(text, "%Y-%m-%d %H:%M:%S"))


def clock_text(seconds):
    return time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(seconds))
