#!/usr/bin/env python3
"""The closing table of scripts/test.sh: each build and suite with its passed,
failed and skipped tests, then each skip's reason, then one line of totals.

Arguments: BUILD=REPORT ... where REPORT is a JUnit file of CTest
(--output-junit) or GoogleTest (--gtest_output=xml:), or BUILD=TSV with lines
"suite<TAB>passed|failed|skipped<TAB>reason" for the runs that are no tests of
either (fuzz targets, the state-file check)."""
import collections
import re
import sys
import xml.etree.ElementTree as ElementTree


def skip_reason(output):
    # GoogleTest prints "file:line: Skipped", the reason, then "[  SKIPPED ]";
    # the shell tests print "SKIP: reason" and exit 77.
    match = re.search(r": Skipped\n(.*?)\n\[  SKIPPED \]", output, re.S)
    if match and match.group(1).strip():
        return " ".join(match.group(1).split())
    match = re.search(r"^SKIP: (.*)$", output, re.M)
    return match.group(1).strip() if match else "no reason printed"


def junit_rows(path):
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        name = case.get("name", "")
        classname = case.get("classname", "")
        # GoogleTest's own report names the suite in classname; CTest's
        # names the test as Suite.Case in both.
        suite = classname.rsplit(".", 1)[0] if "." in classname else classname
        if name == classname:
            suite = name.rsplit(".", 1)[0]
        output = "".join(node.text or "" for node in case.iter("system-out"))
        status = case.get("status", "run")
        if case.find("failure") is not None or case.find("error") is not None or status == "fail":
            yield suite, "failed", ""
        elif case.find("skipped") is not None or status in ("notrun", "skipped") or case.get("result") == "skipped":
            yield suite, "skipped", skip_reason(output) if output else case.find("skipped").get("message", "")
        else:
            yield suite, "passed", ""


def tsv_rows(path):
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            fields = line.rstrip("\n").split("\t")
            if len(fields) >= 2:
                yield fields[0], fields[1], fields[2] if len(fields) > 2 else ""


def main(arguments):
    counts = collections.OrderedDict()
    reasons = collections.OrderedDict()
    for argument in arguments:
        build, _, path = argument.partition("=")
        try:
            rows = list(tsv_rows(path) if path.endswith(".tsv") else junit_rows(path))
        except (OSError, ElementTree.ParseError) as error:
            rows = [("(results)", "failed", "")]
            print(f"{build}: no results in {path}: {error}")
        for suite, outcome, reason in rows:
            counts.setdefault((build, suite), collections.Counter())[outcome] += 1
            if outcome == "skipped":
                reasons.setdefault((build, suite, reason), 0)
                reasons[(build, suite, reason)] += 1
    width = max([len(build) for build, _ in counts] + [5])
    suite_width = max([len(suite) for _, suite in counts] + [5])
    print(f"\n=== summary\n{'build':<{width}}  {'suite':<{suite_width}}  passed  failed  skipped")
    totals = collections.Counter()
    for (build, suite), count in counts.items():
        totals.update(count)
        print(f"{build:<{width}}  {suite:<{suite_width}}  {count['passed']:>6}  {count['failed']:>6}  "
              f"{count['skipped']:>7}")
    if reasons:
        print("\nskipped, and why:")
        for (build, suite, reason), number in reasons.items():
            print(f"  {build} {suite} ({number}): {reason}")
    print(f"\n{totals['passed']} passed, {totals['failed']} failed, {totals['skipped']} skipped")
    return 1 if totals["failed"] else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
