#!/usr/bin/env python3
"""Prints what one configuration's test run did: ctest's passed and failed
counts, and from the GoogleTest reports (GTEST_OUTPUT=xml:<dir>/) the number
of test cases run, failed and skipped, with every skip's reason.
Usage: summarize.py <name> <gtest-xml-dir> <ctest-log>"""
import glob
import re
import sys
import xml.etree.ElementTree as ET

name, xml_dir, log = sys.argv[1:4]
passed = failed = 0
with open(log, errors="replace") as f:
    for line in f:
        m = re.search(r"(\d+)% tests passed, (\d+) tests failed out of (\d+)", line)
        if m:
            failed = int(m.group(2))
            passed = int(m.group(3)) - failed
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
print("%s: ctest %d passed, %d failed; GoogleTest %d cases, %d failed, %d skipped"
      % (name, passed, failed, cases, case_failures, len(skips)))
for s in skips:
    print("  skipped %s" % s)
