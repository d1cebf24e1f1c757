#!/usr/bin/env python3
"""Prints what one configuration's test run did: ctest's passed, failed and
skipped counts, and from the GoogleTest reports (GTEST_OUTPUT=xml:<dir>/) the
number of test cases run, failed and skipped, with every skip's reason (a
whole test left out of a configuration writes a report of its own with one
skipped case: see ovra_skip_test_on_windows in tests/CMakeLists.txt).
Usage: summarize.py <name> <gtest-xml-dir> <ctest-log>"""
import glob
import re
import sys
import xml.etree.ElementTree as ET

name, xml_dir, log = sys.argv[1:4]
passed = failed = not_run = 0
with open(log, errors="replace") as f:
    for line in f:
        m = re.search(r"(\d+)% tests passed, (\d+) tests failed out of (\d+)", line)
        if m:
            failed = int(m.group(2))
            passed = int(m.group(3)) - failed
        elif re.match(r"\s+\d+ - \S+ \(Skipped\)\s*$", line):
            not_run += 1
passed -= not_run  # ctest counts a skipped test among the passed ones
cases = case_failures = 0
skips = []
for path in sorted(glob.glob(xml_dir + "/*.xml")):
    try:
        root = ET.parse(path).getroot()
    except ET.ParseError:
        continue  # a program that crashed leaves a partial report; ctest counted it
    for case in root.iter("testcase"):
        cases += 1
        if case.find("failure") is not None:
            case_failures += 1
        skipped = case.find("skipped")
        if case.get("result") == "skipped" or skipped is not None:
            reason = skipped.get("message", "") if skipped is not None else ""
            reason = reason.strip().splitlines()[-1] if reason.strip() else "no reason given"
            skips.append("%s.%s: %s" % (case.get("classname"), case.get("name"), reason))
print("%s: ctest %d passed, %d failed, %d skipped; GoogleTest %d cases, %d failed, %d skipped"
      % (name, passed, failed, not_run, cases, case_failures, len(skips)))
for s in skips:
    print("  skipped %s" % s)
