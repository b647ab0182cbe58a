"""Estimators in files, and copies of them."""

from __future__ import annotations

import copy
import json
import pickle
from pathlib import Path
from typing import Any

import numpy as np
import pandas as pd
import pytest
from sklearn.base import clone

from clastool import BayesParams, ClassifierTool, Costs, DistributionTypes, Frequencies, KNNParams, Norm
from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier
from samples import BOTH, COSTS, IRIS, SPECIES


@pytest.mark.parametrize(
    "model",
    [
        KNeighborsCostClassifier(7, p=1.25, costs={("a", "c"): 4.0, "default": 0.3}, n_jobs=1),
        KNeighborsCostClassifier(3, reject_quantile=0.05, reject_label="?"),
        BayesCostClassifier(priors={"a": 0.2, "b": 0.3, "c": 0.5}, costs=np.array(COSTS), groups={"b": [["w", "x"]]}),
        BayesCostClassifier(groups="all", reject_quantile=0.05),
        BayesCostClassifier(groups=(("w", "x"), ("y", "z")), priors="equal"),
    ],
    ids=["neighbors", "neighbors that reject", "bayes", "bayes that rejects", "tuples"],
)
def test_loaded_estimators_answer_to_the_bit(model: Any, tmp_path: Path) -> None:
    table, y = pd.DataFrame(IRIS, columns=list("wxyz")), np.array(["a", "b", "c"])[SPECIES]
    model = clone(model).fit(table, y)
    model.save(tmp_path / "model")
    loaded = type(model).load(tmp_path / "model")
    assert np.array_equal(loaded.predict_proba(table), model.predict_proba(table))
    assert np.array_equal(loaded.expected_costs(table), model.expected_costs(table))
    assert loaded.predict(table).tolist() == model.predict(table).tolist()
    assert loaded.feature_names_in_.tolist() == list("wxyz")
    assert repr(loaded) == repr(model)
    assert loaded.recost(costs=COSTS).expected_costs(table).tolist() == model.recost(costs=COSTS).expected_costs(table).tolist()
    if model.reject_quantile is None:
        more, labels = table.iloc[:10], y[:10]
        assert np.array_equal(
            loaded.partial_fit(more, labels).predict_proba(table), model.partial_fit(more, labels).predict_proba(table)
        )


def test_names_of_files_may_be_bytes(tmp_path: Path) -> None:
    model = BayesCostClassifier().fit(IRIS, SPECIES)
    name: Any = bytes(tmp_path / "model")
    model.save(name)
    assert sorted(path.name for path in tmp_path.iterdir()) == ["model", "model.json"]
    assert np.array_equal(BayesCostClassifier.load(name).predict_proba(IRIS), model.predict_proba(IRIS))


def test_tool_in_the_file_is_the_estimator_without_python(tmp_path: Path) -> None:
    model = KNeighborsCostClassifier(7, p=1, costs=COSTS).fit(IRIS, SPECIES)
    model.save(tmp_path / "model")
    tool = ClassifierTool.load(str(tmp_path / "model"))
    params: Any = tool.params
    assert (params.k, params.metric) == (7, Norm(1.0))
    rows = tool.run_rows(IRIS)
    assert np.array_equal(rows.class_scores, model.predict_proba(IRIS))
    result = tool.run(IRIS[70])
    assert result.decision.expected_cost == model.expected_costs(IRIS[70:71]).min()


def test_tool_of_a_c_program_becomes_an_estimator(tmp_path: Path) -> None:
    tool = ClassifierTool()
    tool.train(IRIS, SPECIES + 4, KNNParams(9, Norm(1.0), Costs(1.0, {(4, 5): 3.0})))
    tool.save(str(tmp_path / "knn"))
    model = KNeighborsCostClassifier.load(tmp_path / "knn")
    assert model.classes_.tolist() == [4, 5, 6] and model.costs_.tolist() == [[0, 3, 1], [1, 0, 1], [1, 1, 0]]
    assert model.n_neighbors == 9 and model.p == 1.0 and model.class_count_.tolist() == [50, 50, 50]
    assert np.array_equal(model.predict_proba(IRIS), tool.run_rows(IRIS).class_scores)
    assert np.array_equal(model.predict_proba(IRIS), clone(model).fit(IRIS, SPECIES + 4).predict_proba(IRIS))

    types = DistributionTypes()
    types.set_dependent(5, [1, 2])
    tool.train(IRIS, SPECIES + 4, BayesParams(types, Frequencies(1.0, {6: 2.0}), Costs(2.0)))
    tool.save(str(tmp_path / "bayes"))
    bayes = BayesCostClassifier.load(tmp_path / "bayes")
    assert bayes.groups == {5: [[1, 2]]} and bayes.class_prior_.tolist() == [0.25, 0.25, 0.5]
    assert np.array_equal(bayes.expected_costs(IRIS), tool.run_rows(IRIS).expected_costs)
    np.testing.assert_allclose(bayes.predict_proba(IRIS), clone(bayes).fit(IRIS, SPECIES + 4).predict_proba(IRIS), rtol=1e-12)

    path = tmp_path / "knn"
    with pytest.raises(ValueError) as caught:
        BayesCostClassifier.load(path)
    assert str(caught.value) == f"{path}: the tool is not one of a BayesCostClassifier"


def changed(text: str, way: list[Any], change: Any) -> str:
    """A text in JSON with a change at the end of the way."""
    content = at = json.loads(text)
    for step in way[:-1]:
        at = at[step]
    at[way[-1]] = change(at[way[-1]])
    return json.dumps(content)


def test_files_that_are_damaged_or_do_not_belong_together(tmp_path: Path) -> None:
    path, text = tmp_path / "model", tmp_path / "model.json"

    def wrong(why: str) -> str:
        return f"{text}: is not what save wrote: {why}"

    model = KNeighborsCostClassifier().fit(IRIS, SPECIES)
    model.save(path)
    other = text.read_text()
    KNeighborsCostClassifier().fit(IRIS[::2], SPECIES[::2]).save(path)
    good = text.read_text()
    rows = [
        (other, f"{text}: was not written with {path}"),
        ("{", f"{text}: is not what save wrote: Expecting property name enclosed in double quotes: line 1 column 2 (char 1)"),
        ("{}", f"{text}: is not what save wrote: 'version'"),
        ("[]", f"{text}: is not what save wrote: list indices must be integers or slices, not str"),
        (good.replace('"version": 1', '"version": 2'), f"{text}: is not what save wrote: it has the unknown version 2"),
        (good.replace('"classes_"', '"klasses_"'), f"{text}: is not what save wrote: 'classes_'"),
        # Both names are wrong: the first in the alphabet is told, whatever the other.
        *((good.replace('"costs_"', f'"other{i}"'), wrong("'costs_'")) for i in range(20)),
        (changed(good, ["attributes", "dict"], lambda pairs: pairs[:-1] + [["predict", 1]]), wrong("'n_features_in_'")),
        (changed(good, ["attributes", "dict"], lambda pairs: [*pairs, ["predict", 1]]), wrong("'predict'")),
        (changed(good, ["attributes", "dict", 2, 1, "array"], lambda costs: costs[1:]), wrong("costs_ is of the wrong kind or size")),
        (changed(good, ["attributes", "dict", 0, 1, "array"], lambda _: [0, 1, 10**400]), wrong("")),
        (changed(good, ["attributes", "dict", 0, 1, "array"], lambda _: [0, 1, 7]), f"{text}: tells of another tool than that in {path}"),
        (changed(good, ["attributes", "dict", 3, 1], lambda _: 5), f"{text}: tells of another tool than that in {path}"),
        (changed(good, ["parameters", "dict"], lambda _: [[1, 2]]), wrong("a parameter has no name")),
        (
            changed(good, ["parameters", "dict"], lambda _: [["q", 2]]),
            wrong("KNeighborsCostClassifier.__init__() got an unexpected keyword argument 'q'"),
        ),
        ("[" * 100_000, wrong("")),
    ]
    for content, message in rows:
        text.write_text(content)
        with pytest.raises(ValueError) as caught:
            KNeighborsCostClassifier.load(path)
        assert str(caught.value).startswith(message)
    text.write_bytes(b"\xff")
    with pytest.raises(ValueError, match="model.json: is not what save wrote: 'utf-8' codec"):
        KNeighborsCostClassifier.load(path)
    text.write_text(good)
    path.write_bytes(path.read_bytes()[:-1])
    with pytest.raises(Exception, match="damaged or cut short"):
        KNeighborsCostClassifier.load(path)


def test_what_cannot_be_saved_leaves_the_file(tmp_path: Path) -> None:
    path = tmp_path / "model"
    KNeighborsCostClassifier().fit(IRIS, SPECIES).save(path)
    before = path.read_bytes(), (tmp_path / "model.json").read_bytes()
    with pytest.raises(ValueError, match="cannot be saved: <function"):
        KNeighborsCostClassifier(metric=lambda a, b: abs(a[0] - b[0])).fit(IRIS, SPECIES).save(path)
    assert (path.read_bytes(), (tmp_path / "model.json").read_bytes()) == before


@pytest.mark.parametrize("cls", BOTH)
def test_copies_and_pickles_answer_to_the_bit(cls: Any) -> None:
    model = cls(costs=COSTS).fit(IRIS, SPECIES)
    for twin in (copy.deepcopy(model), pickle.loads(pickle.dumps(model, protocol=5))):
        assert np.array_equal(twin.expected_costs(IRIS), model.expected_costs(IRIS))
        twin.recost(costs=None)
        assert model.costs_.tolist() == COSTS


@pytest.mark.parametrize("cls", BOTH)
def test_shallow_copies_go_their_own_way(cls: Any) -> None:
    model = cls().fit(IRIS, SPECIES)
    before = model.expected_costs(IRIS)
    copy.copy(model).partial_fit(IRIS[:50], SPECIES[:50] + 1)
    copy.copy(model).recost(costs=COSTS)
    assert np.array_equal(model.expected_costs(IRIS), before)
