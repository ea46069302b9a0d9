"""Counts the system calls between the marks that oxbench --count leaves in a trace."""
import collections
import re

CALL = re.compile(r"^(?:\d+\s+)?([a-z_0-9]+)\(")
BEGIN = re.compile(r'"/oxbench-mark/begin/([a-z-]+)/(\d+)"')


def count(path):
    """{operation: {call: how often in one operation}}, with the calls of all threads."""
    result = {}
    operation = None
    with open(path, encoding="utf-8", errors="replace") as trace:
        for line in trace:
            begin = BEGIN.search(line)
            if begin:
                operation, repeats = begin.group(1), int(begin.group(2))
                calls = collections.Counter()
            elif '"/oxbench-mark/end"' in line:
                result[operation] = {name: calls[name] / repeats for name in calls}
                operation = None
            elif operation and (call := CALL.match(line)):
                calls[call.group(1)] += 1
    return result
