"""Tools that go from Python to a C++ program and back. CLASTOOL_BUILD names the folder in which the package was built."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path
from typing import Any

import clastool as ct
import numpy as np
import pytest
from test_tool import TOOLS, sample, tree_tool

HERE = Path(__file__).parent
TOP = HERE.parent.parent


@pytest.fixture(scope="session")
def program(tmp_path_factory: pytest.TempPathFactory) -> Path:
    build = os.environ.get("CLASTOOL_BUILD")
    if build is None:
        pytest.skip("CLASTOOL_BUILD names no folder with the libraries: .ci/python does")
    made = tmp_path_factory.mktemp("cpp") / "deployed"
    libraries = [f"{build}/clastool/lib{name}.a" for name in ("clastool-kit", "clastool", "ktfoundation")]
    folders = [f"-I{TOP / folder}" for folder in ("foundation/include", "include", "kit/include")]
    command = [os.environ.get("CXX", "c++"), "-std=c++17", "-DKT_STATIC", *folders, f"{HERE / 'deployed.cpp'}", "-o", f"{made}"]
    subprocess.run([*command, "-Wl,-u,ktClastoolClasses", *libraries, "-pthread"], check=True)
    return made


def told(program: Path, kind: str, tool: Path, X: Any, folder: Path) -> list[str]:
    np.ascontiguousarray(X, "f8").tofile(folder / "rows")
    done = subprocess.run(
        [program, "run", kind, tool, folder / "rows", str(X.shape[1])], check=True, capture_output=True, text=True
    )
    return done.stdout.splitlines()



def assert_equal_to_the_bit(lines: list[str], tool: ct.ClassifierTool, X: Any) -> None:
    assert len(lines) == len(X)
    for line, row in zip(lines, X):
        result = tool.run(row)
        words = line.split()
        expected: list[float] = [result.match_score_factor_log]
        for category in result.category_results:
            expected += [category.label, category.match_score, category.class_score, category.expected_cost]
        found = [float.fromhex(word) if "x" in word else float(word) for word in words]
        assert np.array(found).tobytes() == np.array(expected, "f8").tobytes()


@pytest.mark.parametrize("name", ["neighbors", "bayes", "tree"])
@pytest.mark.parametrize("kind", ["kit", "plain"])
def test_a_tool_of_python_runs_in_cpp(name: str, kind: str, program: Path, tmp_path: Path) -> None:
    tool = TOOLS[name]()
    X = sample(200, 4, 3, 50)[0]
    if name == "bayes":
        X[3, 1] = np.nan
    tool.save(tmp_path / "tool", plain=kind == "plain")
    way = "retrained" if (name, kind) == ("neighbors", "plain") else kind
    assert_equal_to_the_bit(told(program, way, tmp_path / "tool", X, tmp_path), tool, X)


@pytest.mark.parametrize("technique", ["bayes", "neighbors"])
def test_a_tool_of_cpp_runs_in_python(technique: str, program: Path, tmp_path: Path) -> None:
    X, y = sample(300, 4, 3)
    X[7, 2] = X[7, 2] if technique == "neighbors" else np.nan
    np.column_stack([y, X]).astype("f8").tofile(tmp_path / "training")
    subprocess.run([program, "train", technique, tmp_path / "tool", tmp_path / "training", "5"], check=True)
    tool = ct.ClassifierTool.load(tmp_path / "tool")
    queries = sample(200, 4, 3, 50)[0]
    assert_equal_to_the_bit(told(program, "kit", tmp_path / "tool", queries, tmp_path), tool, queries)
    same = ct.ClassifierTool()
    costs = ct.Costs(1, {(0, 1): 7.0})
    same.train(X, y, ct.BayesParams(costs=costs) if technique == "bayes" else ct.KNNParams(5, ct.Norm(1), costs))
    assert same == tool
    assert same.to_bytes() == (tmp_path / "tool").read_bytes()


def test_a_tree_of_cpp_runs_in_python(program: Path, tmp_path: Path) -> None:
    subprocess.run([program, "tree", tmp_path / "tool"], check=True)
    tool = ct.ClassifierTool.load(tmp_path / "tool")
    assert [tool.run([x]).label for x in (1.0, -1.0)] == [4, 5]
    assert isinstance(tool.tree, ct.Node)
    assert tool.tree.predicate == ct.RangePredicate(0.0, np.inf, [0])
    assert tree_tool() != tool
