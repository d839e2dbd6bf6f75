"""Jinja2: jinja2_driver.py DATA TEMPLATES [letters OUTPUT]. Answers the commands that Driver.h describes."""

import functools
import json
import pathlib
import re
import sys
import time
import tracemalloc

import jinja2

DATA, TEMPLATES = (pathlib.Path(argument) for argument in sys.argv[1:3])
ENVIRONMENT = jinja2.Environment(keep_trailing_newline=True)
ENVIRONMENT.tests["reduced"] = re.compile(r"^(SALE|LAST)-\d+$").search


def page(name):
    return ENVIRONMENT.from_string((TEMPLATES / f"{name}.j2").read_text())


def data_of(name):
    return json.loads((DATA / f"{name}.json").read_text())


class Compiling:
    def __init__(self, name):
        self.text = (DATA / f"jinja2-{name}.txt").read_text()

    def run(self):
        return ENVIRONMENT.from_string(self.text)

    def memory(self):
        self.run()
        tracemalloc.start()
        compiled = self.run()
        size = tracemalloc.get_traced_memory()[0]
        tracemalloc.stop()
        del compiled
        return size / len(self.text)


class Rendering:
    def __init__(self, name):
        data = data_of(name)
        self.run = functools.partial(page(name.split("-")[0]).render, data)


@functools.lru_cache(maxsize=1)
def prepare(name):
    return Compiling(name) if name.startswith("compile-") else Rendering(name)


def answer(command, name, argument=""):
    workload = prepare(name)
    if command == "run":
        count = int(argument)
        wall, processor = time.perf_counter(), time.process_time()
        for _ in range(count):
            workload.run()
        processor, wall = time.process_time() - processor, time.perf_counter() - wall
        return f"{wall / count} {processor / count}"
    if command == "output":
        pathlib.Path(argument).write_text(workload.run())
        return "done"
    return str(workload.memory())


def serve():
    for line in sys.stdin:
        try:
            print(answer(*line.split()), flush=True)
        except Exception as error:  # whatever it is, it is the answer
            print("error", type(error).__name__, str(error).replace("\n", " "), flush=True)


if len(sys.argv) == 5:
    with open(sys.argv[4], "w") as out:
        out.writelines(page("letters").generate(data_of("letters")))
else:
    serve()
