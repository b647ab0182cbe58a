"""`python -m clastool`, as a program of its own."""

from __future__ import annotations

import csv
import subprocess
import sys
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd
import pytest
from clastool import BayesParams, ClassifierTool, KNNParams
from clastool.__main__ import main
from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier
from clastool.trees import from_sklearn
from samples import IRIS, SPECIES
from sklearn.tree import DecisionTreeClassifier

NAMES = ["sepal length", "sepal width", "petal length", "petal width"]


def command(*arguments: object) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [sys.executable, "-m", "clastool", *map(str, arguments)], capture_output=True, text=True, check=False
    )


def read(path: Path) -> tuple[list[str], list[list[str]]]:
    with open(path, newline="", encoding="utf-8") as file:
        header, *rows = csv.reader(file)
    return header, rows


def write_iris(path: Path, header: bool = True) -> None:
    pd.DataFrame(IRIS, columns=NAMES).to_csv(path, index=False, header=header)


def test_show_says_what_a_file_holds(tmp_path: Path) -> None:
    tool = ClassifierTool()
    params = KNNParams(7)
    tool.train(IRIS, SPECIES, params)
    tool.save(str(tmp_path / "knn"))
    shown = command("show", tmp_path / "knn")
    assert (shown.returncode, shown.stderr) == (0, "")
    size = (tmp_path / "knn").stat().st_size
    assert shown.stdout == (
        "technique: neighbors\ncategories: 0, 1, 2\nmeasurements: 4\n"
        f"k: 7\nmetric: {params.metric!r}\ncosts: {params.costs!r}\n"
        f"patterns: 50 of 0, 50 of 1, 50 of 2\nsize: {size} bytes\n"
    )


def test_show_knows_every_technique(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    BayesCostClassifier(groups="all").fit(IRIS, np.array(["a", "b", "c"])[SPECIES]).save(tmp_path / "bayes")
    from_sklearn(DecisionTreeClassifier().fit(IRIS, SPECIES)).save(str(tmp_path / "tree"))
    ClassifierTool().save(str(tmp_path / "empty"))
    tool = ClassifierTool()
    tool.train(IRIS, SPECIES, BayesParams())
    tool.save(str(tmp_path / "plain"), plain=True)
    BayesCostClassifier(distribution={1: "binomial"}, max_values=9).fit(IRIS, SPECIES).save(tmp_path / "binomial")
    lines = {}
    for name in ("bayes", "binomial", "tree", "empty", "plain"):
        assert main(["show", str(tmp_path / name)]) == 0
        lines[name] = capsys.readouterr().out.splitlines()
    assert lines["bayes"][:3] == ["technique: bayes", "categories: 0 (a), 1 (b), 2 (c)", "measurements: 4"]
    assert [line.split(":")[0] for line in lines["bayes"][3:]] == ["distribution types", "frequencies", "costs", "patterns", "size"]
    assert "largest values: FeaturePattern([9.0, 9.0, 9.0, 9.0])" in lines["binomial"]
    assert lines["bayes"][-2] == "patterns: 50 of 0, 50 of 1, 50 of 2"
    assert [line.split(":")[0] for line in lines["tree"]] == ["technique", "categories", "size"]
    assert lines["empty"][0] == "technique: none: the tool is not trained" and len(lines["empty"]) == 2
    assert lines["plain"][:2] == ["technique: bayes", "categories: 0, 1, 2"]


@pytest.mark.parametrize("header", [True, False])
def test_predict_applies_a_tool(header: bool, tmp_path: Path) -> None:
    tool = ClassifierTool()
    tool.train(IRIS, SPECIES, BayesParams())
    tool.save(str(tmp_path / "tool"))
    write_iris(tmp_path / "data.csv", header)
    done = command("predict", tmp_path / "tool", tmp_path / "data.csv", "-o", tmp_path / "out.csv")
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    columns, rows = read(tmp_path / "out.csv")
    assert columns == ["decision", *(f"probability {c}" for c in range(3)), *(f"expected cost {c}" for c in range(3))]
    answers = tool.run_rows(IRIS)
    assert [int(row[0]) for row in rows] == answers.labels.tolist()
    numbers = np.array([row[1:] for row in rows], dtype=float)
    assert np.array_equal(numbers, np.hstack([answers.class_scores, answers.expected_costs]))


@pytest.mark.parametrize("cls", [BayesCostClassifier, KNeighborsCostClassifier])
def test_predict_answers_as_the_estimator(cls: Any, tmp_path: Path) -> None:
    table, y = pd.DataFrame(IRIS, columns=NAMES), np.array(["a", "b", "c"])[SPECIES]
    model = cls(costs={("c", "b"): 7}, reject_quantile=0.05, reject_label="none").fit(table, y)
    model.save(tmp_path / "model")
    shuffled = table[NAMES[::-1]].assign(remark="x")  # columns are found by their names
    shuffled.to_csv(tmp_path / "data.csv", index=False)
    assert main(["predict", str(tmp_path / "model"), str(tmp_path / "data.csv"), "-o", str(tmp_path / "out.csv")]) == 0
    columns, rows = read(tmp_path / "out.csv")
    assert columns[1:4] == ["probability a", "probability b", "probability c"]
    assert [row[0] for row in rows] == model.predict(table).tolist()
    assert "none" in {row[0] for row in rows}
    numbers = np.array([row[1:] for row in rows], dtype=float)
    assert np.array_equal(numbers, np.hstack([model.predict_proba(table), model.expected_costs(table)]))


def test_predict_takes_gaps_and_trees(tmp_path: Path) -> None:
    (tmp_path / "data.csv").write_text("a,b\n1,\nNA,2\nnan,NaN\n")
    tool = ClassifierTool()
    tool.train([[0.0, 0.0], [1.0, 1.0], [4.0, 5.0], [5.0, 4.0]], [0, 0, 1, 1], BayesParams())
    tool.save(str(tmp_path / "tool"))
    assert main(["predict", str(tmp_path / "tool"), str(tmp_path / "data.csv"), "-o", str(tmp_path / "out.csv")]) == 0
    assert [row[0] for row in read(tmp_path / "out.csv")[1]] == ["0", "0", "0"]
    tree = from_sklearn(DecisionTreeClassifier(random_state=0).fit(IRIS, SPECIES))
    tree.save(str(tmp_path / "tree"))
    write_iris(tmp_path / "iris.csv")
    assert main(["predict", str(tmp_path / "tree"), str(tmp_path / "iris.csv"), "-o", str(tmp_path / "out.csv")]) == 0
    assert [int(row[0]) for row in read(tmp_path / "out.csv")[1]] == SPECIES.tolist()


def test_wrong_files_end_in_one_line_and_status_1(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    tool = ClassifierTool()
    tool.train(IRIS, SPECIES, BayesParams())
    good, data, out = tmp_path / "good", tmp_path / "data.csv", tmp_path / "out.csv"
    tool.save(str(good))
    content = good.read_bytes()
    damaged = tmp_path / "damaged"
    for length in (0, 5, 12, len(content) // 2, len(content) - 1):
        damaged.write_bytes(content[:length])
        for arguments in (["show", damaged], ["predict", damaged, data, "-o", out]):
            assert main([str(argument) for argument in arguments]) == 1
            shown = capsys.readouterr()
            assert shown.out == "" and shown.err.count("\n") == 1 and shown.err.startswith("clastool: ")
    damaged.write_bytes(content[:100] + bytes([content[100] ^ 1]) + content[101:])
    done = command("show", damaged)
    assert (done.returncode, done.stdout) == (1, "") and done.stderr.count("\n") == 1
    texts = {
        "": "has no rows",
        "a,b,c,d\n": "has no rows",
        "1,2,3\n": "has 3 columns, but the tool was trained on 4 measurements",
        "1,2,3,4\n1,2,3\n": "row 2 has 3 cells, the first line 4",
        "a,b,c,d\n1,2,3\n": "row 1 has 3 cells, the first line 4",
        "a,b,c,d\n1,2,3,4,5\n": "row 1 has 5 cells, the first line 4",
        "a,b,c,d\n1,2,x,4\n": "row 1, column 3: 'x' is not a number",
    }
    for text, message in texts.items():
        data.write_text(text)
        assert main(["predict", str(good), str(data), "-o", str(out)]) == 1
        assert capsys.readouterr().err == f"clastool: {data}: {message}\n"
    assert main(["show", str(tmp_path / "none")]) == 1
    assert capsys.readouterr().err == f"clastool: {tmp_path / 'none'}: cannot be read\n"
    assert not out.exists()
    BayesCostClassifier().fit(pd.DataFrame(IRIS, columns=NAMES), SPECIES).save(good)
    data.write_text("a,b,c,d\n1,2,3,4\n")
    assert main(["predict", str(good), str(data), "-o", str(out)]) == 1
    assert capsys.readouterr().err == f"clastool: {data}: has no column 'sepal length'\n"
    KNeighborsCostClassifier().fit(IRIS, SPECIES).save(good)
    data.write_text("1,2,,4\n")
    assert main(["predict", str(good), str(data), "-o", str(out)]) == 1
    told = capsys.readouterr().err
    assert told.startswith("clastool: Input X contains NaN. KNeighborsCostClassifier does not") and told.count("\n") == 1


def test_names_may_follow_a_byte_order_mark(tmp_path: Path) -> None:
    table = pd.DataFrame(IRIS, columns=NAMES)
    model = BayesCostClassifier().fit(table, SPECIES)
    model.save(tmp_path / "model")
    table.to_csv(tmp_path / "data.csv", index=False, encoding="utf-8-sig")
    assert main(["predict", str(tmp_path / "model"), str(tmp_path / "data.csv"), "-o", str(tmp_path / "out.csv")]) == 0
    assert [int(row[0]) for row in read(tmp_path / "out.csv")[1]] == model.predict(table).tolist()


def test_texts_that_were_changed_at_random_end_in_one_line_or_are_taken(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    path, text, data, out = tmp_path / "model", tmp_path / "model.json", tmp_path / "data.csv", tmp_path / "out.csv"
    BayesCostClassifier(groups="all", reject_quantile=0.1, reject_label="none").fit(IRIS, np.array(["a", "b", "c"])[SPECIES]).save(path)
    pd.DataFrame(IRIS).to_csv(data, index=False)
    good = text.read_bytes()
    random = np.random.default_rng(1)
    told = 0
    for _ in range(300):
        bytes_ = bytearray(good)
        for place in random.integers(0, len(good), random.integers(1, 4)):
            bytes_[place] = random.choice([*b'0123456789",:[]{}-x'])
        text.write_bytes(bytes_)
        for arguments in (["show", path], ["predict", path, data, "-o", out]):
            status = main([str(argument) for argument in arguments])
            shown = capsys.readouterr().err
            assert (status, shown.count("\n"), shown[:10]) in ((0, 0, ""), (1, 1, "clastool: "))
            told += status
    assert told > 300


def test_tables_that_are_none_end_in_one_line(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    tool = ClassifierTool()
    tool.train(IRIS, SPECIES, BayesParams())
    tool.save(str(tmp_path / "tool"))
    data = tmp_path / "data.csv"
    for content in (b"\xff\xfe1,2,3,4\n", b'"' + b"1" * 200_000 + b'",2,3,4\n'):
        data.write_bytes(content)
        assert main(["predict", str(tmp_path / "tool"), str(data), "-o", str(tmp_path / "out.csv")]) == 1
        shown = capsys.readouterr().err
        assert shown.startswith(f"clastool: {data}: is not a table in UTF-8: ") and shown.count("\n") == 1


def test_wrong_arguments_end_in_status_2() -> None:
    assert command().returncode == command("predict", "x", "y").returncode == 2
