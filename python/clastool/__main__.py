"""`python -m clastool show FILE` and `python -m clastool predict FILE DATA.csv -o OUT.csv`."""

from __future__ import annotations

import argparse
import csv
import os
import sys
import warnings
from collections.abc import Sequence
from typing import Any

import numpy as np
import numpy.typing as npt

from . import ClassifierTool, DistributionType
from ._files import saved_classes, saved_estimator, saved_feature_names

_MISSING = {"", "na", "nan"}


def main(arguments: Sequence[str] | None = None) -> int:
    """Runs a command. Returns the exit status. On an error it writes one line to the standard error output and returns 1."""
    options = _parser().parse_args(arguments)
    try:
        options.command(options)
    except Exception as error:  # damaged files lead to any kind
        print(f"clastool: {' '.join(str(error).split()) or type(error).__name__}", file=sys.stderr)
        return 1
    return 0


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="python -m clastool", description="Looks at trained tools in files, and applies them.")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")
    show = commands.add_parser("show", help="says what a file holds")
    show.add_argument("file")
    show.set_defaults(command=_show)
    predict = commands.add_parser("predict", help="decides on each row of a table")
    predict.add_argument("file")
    predict.add_argument("data", metavar="DATA.csv", help="a column for each measurement, with or without a line of names")
    predict.add_argument("-o", dest="output", metavar="OUT.csv", required=True)
    predict.set_defaults(command=_predict)
    return parser


def _show(options: argparse.Namespace) -> None:
    tool = ClassifierTool.load(options.file)
    for name, value in _description(tool, options.file):
        print(f"{name}: {value}")


def _description(tool: ClassifierTool, path: str) -> list[tuple[str, Any]]:
    size = os.path.getsize(path)
    lines: list[tuple[str, Any]] = [("technique", tool.technique or "none: the tool is not trained")]
    if not tool.is_trained:
        return [*lines, ("size", f"{size} bytes")]
    lines.append(("categories", ", ".join(_category_names(tool, path))))
    if tool.technique == "tree":
        return [*lines, ("size", f"{size} bytes")]
    lines.append(("measurements", tool.num_measurements))
    lines += _parameters(tool)
    counts = tool.category_counts
    lines.append(("patterns", ", ".join(f"{counts[label]} of {label}" for label in tool.categories.tolist())))
    return [*lines, ("size", f"{size} bytes")]


def _category_names(tool: ClassifierTool, path: str) -> list[str]:
    classes = saved_classes(path)
    labels = tool.categories.tolist()
    if classes is None or all(label in classes for label in labels):
        return [str(label) for label in labels]
    return [f"{label} ({classes[label]})" for label in labels]


def _parameters(tool: ClassifierTool) -> list[tuple[str, Any]]:
    params: Any = tool.params
    lines: list[tuple[str, Any]] = []
    if tool.technique == "neighbors":
        lines += [("k", params.k), ("metric", repr(params.metric))]
    else:
        types = params.distribution_types
        lines += [("distribution types", repr(types)), ("frequencies", repr(params.frequencies))]
        if DistributionType.BINOMIAL in {types.default, *types.overrides.values()}:
            lines.append(("largest values", repr(params.max_values)))
    return [*lines, ("costs", repr(params.costs))]


def _predict(options: argparse.Namespace) -> None:
    estimator = saved_estimator(options.file)
    tool = ClassifierTool.load(options.file) if estimator is None else estimator.tool_
    names, cells = _read_table(options.data)
    count = None if tool.technique == "tree" else tool.num_measurements
    rows = _measurements(options, names, cells, count)
    if estimator is None:
        run = tool.run_rows(rows)
        classes, decided, probabilities, expected = run.categories, run.labels, run.class_scores, run.expected_costs
    else:
        with warnings.catch_warnings():
            # The columns are chosen by name already, or have no names.
            warnings.filterwarnings("ignore", "X does not have valid feature names")
            classes, decided = estimator.classes_, estimator.predict(rows)
            probabilities, expected = estimator.predict_proba(rows), estimator.expected_costs(rows)
    header = ["decision", *(f"probability {name}" for name in classes), *(f"expected cost {name}" for name in classes)]
    _write_table(options.output, header, decided, np.hstack([probabilities, expected]))


def _measurements(
    options: argparse.Namespace, names: list[str] | None, cells: list[list[str]], count: int | None
) -> npt.NDArray[np.float64]:
    """The columns that the tool knows by name, as numbers. All columns if the table or the tool has no names."""
    wanted = saved_feature_names(options.file)
    places = list(range(len(cells[0])))
    if names is not None and wanted is not None:
        lacking = [name for name in wanted if name not in names]
        if lacking:
            raise ValueError(f"{options.data}: has no column {lacking[0]!r}")
        places = [names.index(name) for name in wanted]
    if count is not None and len(places) != count:
        raise ValueError(f"{options.data}: has {len(places)} columns, but the tool was trained on {count} measurements")
    numbers = np.empty((len(cells), len(places)))
    for i, row in enumerate(cells):
        for j, place in enumerate(places):
            cell = row[place].strip()
            try:
                numbers[i, j] = np.nan if cell.lower() in _MISSING else float(cell)
            except ValueError:
                raise ValueError(f"{options.data}: row {i + 1}, column {place + 1}: {cell!r} is not a number") from None
    return numbers


def _read_table(path: str) -> tuple[list[str] | None, list[list[str]]]:
    """The names of the columns and the cells below. The names are None if the first line holds only numbers."""
    with open(path, newline="", encoding="utf-8-sig") as file:
        try:
            lines = [line for line in csv.reader(file) if line]
        except (csv.Error, UnicodeDecodeError) as error:
            raise ValueError(f"{path}: is not a table in UTF-8: {error}") from None
    names, width = None, len(lines[0]) if lines else 0
    if lines and not all(_is_number(cell) for cell in lines[0]):
        names = [name.strip() for name in lines.pop(0)]
    if not lines:
        raise ValueError(f"{path}: has no rows")
    for number, line in enumerate(lines, 1):
        if len(line) != width:
            raise ValueError(f"{path}: row {number} has {len(line)} cells, the first line {width}")
    return names, lines


def _is_number(cell: str) -> bool:
    try:
        float(cell)
    except ValueError:
        return cell.strip().lower() in _MISSING
    return True


def _write_table(path: str, header: list[str], decided: npt.NDArray[Any], numbers: npt.NDArray[np.float64]) -> None:
    with open(path, "w", newline="", encoding="utf-8") as file:
        writer = csv.writer(file)
        writer.writerow(header)
        for label, row in zip(decided.tolist(), numbers.tolist()):
            writer.writerow([label, *(repr(number) for number in row)])


if __name__ == "__main__":
    sys.exit(main())
