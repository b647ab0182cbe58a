"""What the library refuses: class, number and whole text of each error that the package can meet, and what stays as it was."""

from __future__ import annotations

import pickle
from collections.abc import Callable
from pathlib import Path
from typing import Any

import clastool as ct
import numpy as np
import pytest
from test_tool import TOOLS, binomial, manhattan, sample, trained, tree_tool

NUMBERS = {
    ct.BadParams: 0x10004200,
    ct.NotTrained: 0x10004201,
    ct.BadIndex: 0x10004202,
    ct.BadLabel: 0x10004203,
    ct.BadMethod: 0x10004204,
    ct.NotImplemented: 0x10004205,
    ct.BadFeatures: 0x10004206,
    ct.InsufficientTrainData: 0x10004207,
    ct.UnknownVersion: 0x10004001,
    ct.Corrupt: 0x10004002,
    ct.OutOfRange: 0x10004003,
    ct.TooDeep: 0x10004004,
    ct.Conflict: 0x10004005,
    ct.StreamFailed: 0x10004006,
    ct.BadPointer: 0x10004007,
    ct.Failure: 0x10004008,
    ct.FileError: 0x10004400,
}

ALSO: dict[type[Exception], set[type[ct.ClastoolError]]] = {
    ValueError: {
        ct.BadParams,
        ct.BadLabel,
        ct.BadFeatures,
        ct.InsufficientTrainData,
        ct.UnknownVersion,
        ct.Corrupt,
        ct.OutOfRange,
    },
    IndexError: {ct.BadIndex},
    RuntimeError: {
        ct.BadMethod,
        ct.NotTrained,
        ct.NotImplemented,
        ct.TooDeep,
        ct.Conflict,
        ct.StreamFailed,
        ct.BadPointer,
        ct.Failure,
        ct.FileError,
    },
    NotImplementedError: {ct.NotImplemented},
    ct.ArchiveError: {ct.UnknownVersion, ct.Corrupt, ct.OutOfRange, ct.TooDeep, ct.Conflict, ct.StreamFailed},
}

SCORES = "Scores must be >= 0.0 and <= 1.0"
COSTS = "Costs must be >= 0.0"
LABELS = "Category labels must be >= 0"
KNOWN = "Category labels must be >= 0 or unknown"
TYPES = "Cateogory labels must be >= 0"
INDICES = "Feature measurement indices must be >= 0"
PREDICATE = "Measurement index must be >= 0 and < number of measurements."
UNTRAINED = "Classifier tool must be trained before "
OTHER = "Cannot retrain with a different classification technique."
NO_GAPS = "K-nearest neighbor classification does not support invalid measurements"
NO_DATA = "No valid data was provided for training."
WIDTH = "Feature pattern must have the same number of measurements as the rest of the data."
BINOMIAL = ct.DistributionTypes(ct.DistributionType.BINOMIAL)


def category(label: int = 0, match: float = 1.0, share: float = 1.0, cost: float = 0.0) -> ct.CategoryResult:
    return ct.CategoryResult(label, match, share, cost)


def train(X: Any, y: Any, params: Any = None) -> None:
    ct.ClassifierTool().train(X, y, params or ct.BayesParams())


def joined(first: int, second: int) -> None:
    types = ct.DistributionTypes()
    types[0, first] = ct.DistributionType.BINOMIAL
    types.set_dependent(0, [first, second])


def overridden_in_a_set() -> None:
    types = ct.DistributionTypes()
    types.set_dependent(0, [1, 2])
    types[0, 1] = ct.DistributionType.BINOMIAL


def classified(values: Any, threshold: float) -> None:
    ct.RuleTable([ct.Rule([ct.FeatureScoreIgnore()] * 2, 0)]).classify(values, threshold)


def of(type: ct.DistributionType) -> ct.BayesParams:
    return ct.BayesParams(ct.DistributionTypes(type))


REFUSED: list[tuple[Callable[[], Any], type[ct.ClastoolError], str]] = [
    (lambda: ct.FeaturePattern([1.0], [-1]), ct.BadIndex, INDICES),
    (lambda: ct.FeaturePattern([1.0], [1]), ct.BadIndex, "Feature measurement indices must be < number of features"),
    (lambda: ct.Costs(-1), ct.BadParams, COSTS),
    (lambda: ct.Costs(1, {(0, 1): -1.0}), ct.BadParams, COSTS),
    (lambda: ct.Costs(1, {(1, 1): 1.0}), ct.BadLabel, "Category labels must be different"),
    (lambda: ct.Costs(1, {(-1, 1): 1.0}), ct.BadLabel, LABELS),
    (lambda: ct.Costs()[2, 2], ct.BadLabel, "Category labels must be different"),
    (lambda: ct.Costs()[2, -1], ct.BadLabel, LABELS),
    (lambda: ct.Costs.from_matrix([[0, 1]]), ct.BadParams, "The matrix of costs must be square"),
    (
        lambda: ct.Costs.from_matrix([[0]], [1, 2]),
        ct.BadParams,
        "There must be as many category labels as rows of the matrix of costs",
    ),
    (lambda: ct.Costs.from_matrix([[0]], [-1]), ct.BadLabel, LABELS),
    (lambda: ct.Costs.from_matrix([[0, 1], [1, 0]], [3, 3]), ct.BadLabel, "Category labels must be unique"),
    (lambda: ct.Costs.from_matrix([[1]]), ct.BadParams, "The diagonal of the matrix of costs must be 0"),
    (lambda: ct.Costs.from_matrix([[0, np.nan], [1, 0]]), ct.BadParams, COSTS),
    (lambda: ct.Frequencies(0), ct.BadParams, "Category frequencies must be > 0.0"),
    (lambda: ct.Frequencies(1, {-1: 1.0}), ct.BadLabel, LABELS),
    (lambda: ct.Frequencies()[-1], ct.BadLabel, LABELS),
    (
        lambda: ct.Frequencies.from_values([1], [1, 2]),
        ct.BadParams,
        "There must be as many category labels as frequencies",
    ),
    (lambda: ct.DistributionTypes()[-1, 0], ct.BadLabel, TYPES),
    (lambda: ct.DistributionTypes()[0, -1], ct.BadIndex, INDICES),
    (
        lambda: joined(0, 1),
        ct.BadParams,
        "The distribution types of dependent feature measurements must be the same.",
    ),
    (lambda: ct.DistributionTypes().is_dependent(-1, [0]), ct.BadLabel, TYPES),
    (lambda: ct.Norm(0), ct.BadParams, "Order of norm distance must be > 0"),
    (
        lambda: ct.Norm()([1], [1, 2]),
        ct.BadFeatures,
        "Pattern distance function requires the number of measurementsin the two patterns to be equal",
    ),
    (
        lambda: ct.Norm()([1], [np.nan]),
        ct.BadFeatures,
        "Access to full feature vector requires that all features are valid.",
    ),
    (lambda: ct.KNNParams(0), ct.BadParams, "K must be >= 1"),
    (lambda: category(-1), ct.BadLabel, LABELS),
    (lambda: category(0, 2), ct.BadParams, SCORES),
    (lambda: category(0, 1, -1), ct.BadParams, SCORES),
    (lambda: category(0, 1, 1, -1), ct.BadParams, COSTS),
    (
        lambda: ct.Result([category(), category()]),
        ct.BadParams,
        "The category labels of the match results must be unique.",
    ),
    (lambda: ct.Result([]), ct.BadParams, "At least one of the classification scores must be > 0."),
    (
        lambda: ct.Result.from_match_scores([], ct.Frequencies(), ct.Costs()),
        ct.BadParams,
        "At least one of the category frequencies must be > 0.",
    ),
    (
        lambda: ct.Result.from_match_scores([category(0, 0)], ct.Frequencies(), ct.Costs()),
        ct.BadParams,
        "At least one of the resulting classification scores must be > 0.",
    ),
    (lambda: ct.Result([category()]).log_likelihood(3), ct.BadLabel, "The result holds no category with the label 3"),
    (lambda: ct.ComparisonPredicate(1, 1), ct.BadParams, "Measurement indices must be different."),
    (lambda: ct.ComparisonPredicate(-1, 1), ct.BadIndex, PREDICATE),
    (lambda: ct.RangePredicate(0, 1, [-1]), ct.BadIndex, PREDICATE),
    (lambda: ct.ValidityPredicate([-1]), ct.BadIndex, PREDICATE),
    (lambda: ct.FeatureScoreOneSided(y0=2), ct.BadParams, "y0 must be between 0 and 1"),
    (lambda: ct.FeatureScoreOneSided(y1=2), ct.BadParams, "y1 must be between 0 and 1"),
    (lambda: ct.FeatureScoreOneSided(0, 2, 1), ct.BadParams, "x1 must be lie between x0 and xc"),
    (
        lambda: ct.FeatureScoreTwoSided(5, 0, 0, 1, 0, 0, 0, 1, 0, 1),
        ct.BadParams,
        "x0 > lowest || x1 > lowest || xc > lowest",
    ),
    (lambda: ct.Rule([ct.FeatureScoreIgnore()], -1), ct.BadParams, "label < 0"),
    (lambda: ct.Rule([], 1), ct.BadParams, "scoringMethods.size() == 0"),
    (lambda: ct.Rule([ct.FeatureScoreIgnore()], 1).score([1, 2]), ct.BadParams, "MismatchedFeatureVectorSize"),
    (lambda: ct.RuleTable([]), ct.BadParams, "rules.size() == 0"),
    (
        lambda: ct.RuleTable([ct.Rule([ct.FeatureScoreIgnore()] * n, 1) for n in (1, 2)]),
        ct.BadParams,
        "rules[i].scoringMethods().size() != ruleSize",
    ),
    (lambda: classified([1, 2], 2), ct.BadParams, "hardThreshold < 0 || hardThreshold > 1"),
    (lambda: classified([], 0), ct.BadParams, "featureVector.featureValues().size() == 0"),
    (
        lambda: classified([1], 0),
        ct.BadParams,
        "featureVector.featureValues().size() != rules_[0].scoringMethods().size())",
    ),
    (
        lambda: ct.TotalDataGenerator([ct.ClassDataGenerator([(0, 1)] * 3, 2)]).generate(),
        ct.BadIndex,
        "Feature pattern index must be >=0 and < number of patterns.",
    ),
    (lambda: train([[1.0]], [-2]), ct.BadLabel, KNOWN),
    (lambda: train([[1.0]], np.array([2**63], "u8")), ct.BadLabel, KNOWN),
    (
        lambda: train([[1.0]], [1, 2]),
        ct.BadFeatures,
        "The number of the feature patterns must be equal to the number of category labels",
    ),
    (lambda: train([[1.0]], [-1]), ct.InsufficientTrainData, NO_DATA),
    (lambda: train(np.empty((0, 3)), []), ct.InsufficientTrainData, NO_DATA),
    (lambda: train(np.empty((0, 3)), [], ct.KNNParams()), ct.InsufficientTrainData, NO_DATA),
    (lambda: train([[np.nan]], [0], ct.KNNParams()), ct.BadFeatures, NO_GAPS),
    (
        lambda: train([[np.nan]], [3]),
        ct.InsufficientTrainData,
        "No valid data has been used to train the distribution for category 3",
    ),
    (
        lambda: train([[1.0]], [3], ct.BayesParams(BINOMIAL, max_values=[9])),
        ct.InsufficientTrainData,
        "Insufficient data has been used to train the distribution for category 3",
    ),
    (
        lambda: train([[1.0]], [0], of(ct.DistributionType.POISSON)),
        ct.NotImplemented,
        "Poisson distribution is not implemented",
    ),
    (
        lambda: train([[1.0]], [0], of(ct.DistributionType.UNIFORM)),
        ct.NotImplemented,
        "Uniform distribution is not implemented",
    ),
    (
        lambda: train([[3.0]], [0], ct.BayesParams(BINOMIAL, max_values=[2])),
        ct.BadParams,
        "Train data measurement cannot exceed its maximum value when using binomial distribution",
    ),
    (lambda: binomial().run([31, 31]), ct.BadParams, "Feature measurement must be <= specified maximum value"),
    (lambda: ct.ClassifierTool().run([1]), ct.NotTrained, UNTRAINED + "running."),
    (lambda: ct.ClassifierTool().run_rows([[1]]), ct.NotTrained, UNTRAINED + "running."),
    (lambda: ct.ClassifierTool().neighbors([[1]]), ct.NotTrained, UNTRAINED + "running."),
    (lambda: ct.ClassifierTool().log_likelihoods([[1]]), ct.NotTrained, UNTRAINED + "running."),
    (lambda: ct.ClassifierTool().retrain(ct.KNNParams()), ct.NotTrained, UNTRAINED + "retraining."),
    (lambda: ct.ClassifierTool().params, ct.NotTrained, UNTRAINED + "requesting the training parameters."),
    (lambda: ct.ClassifierTool().tree, ct.NotTrained, UNTRAINED + "requesting the decision tree."),
    (lambda: ct.ClassifierTool().densities(), ct.NotTrained, UNTRAINED + "requesting the densities"),
    (lambda: ct.ClassifierTool().add([[1]], [1]), ct.NotTrained, UNTRAINED + "incremental training."),
    (
        lambda: ct.ClassifierTool().merge(ct.ClassifierTool()),
        ct.NotTrained,
        "Classifier tools must be trained before they are merged",
    ),
    (lambda: tree_tool().params, ct.BadMethod, "Classifier tool was not automatically trained."),
    (lambda: binomial().tree, ct.BadMethod, "Classifier tool was not trained using a decision tree."),
    (lambda: binomial().neighbors([[1, 2]]), ct.BadMethod, "Classifier tool was not trained for nearest neighbors"),
    (lambda: tree_tool().log_likelihoods([[1]]), ct.BadMethod, "Classifier tool was not trained by Bayes"),
    (lambda: tree_tool().densities(), ct.BadMethod, "Classifier tool was not trained by Bayes"),
    (lambda: tree_tool().retrain(ct.KNNParams()), ct.BadMethod, OTHER),
    (lambda: binomial().retrain(ct.KNNParams()), ct.BadMethod, OTHER),
    (
        lambda: binomial().retrain(ct.BayesParams()),
        ct.BadParams,
        "Cannot retrain a Bayesian classifier with different distribution types.",
    ),
    (
        lambda: binomial().retrain(ct.BayesParams(BINOMIAL, max_values=[5, 5])),
        ct.BadParams,
        "Cannot retrain a Bayesian classifier with different maximum measurements values.",
    ),
    (
        lambda: tree_tool().add([[1]], [1]),
        ct.BadMethod,
        "Classifier tool was trained neither for nearest neighbors nor by Bayes",
    ),
    (lambda: trained(ct.BayesParams()).add([[1]], [1]), ct.BadFeatures, WIDTH),
    (lambda: trained(ct.KNNParams()).run([1]), ct.BadFeatures, NO_GAPS),
    (lambda: trained(ct.KNNParams()).run_rows([[1, 2, 3, np.inf]]), ct.BadFeatures, NO_GAPS),
    (lambda: trained(ct.KNNParams()).neighbors([[1]]), ct.BadFeatures, NO_GAPS),
    (lambda: trained(ct.KNNParams()).neighbors([[1] * 4], 0), ct.BadParams, "K must be >= 1"),
    (
        lambda: trained(ct.KNNParams()).merge(trained(ct.KNNParams())),
        ct.BadMethod,
        "Classifier tools must be trained by Bayes to be merged",
    ),
    (
        lambda: trained(ct.BayesParams()).merge(trained(ct.BayesParams(costs=ct.Costs(2)))),
        ct.BadParams,
        "Classifier tools must be trained with equal parameters to be merged",
    ),
    (
        lambda: trained(ct.BayesParams()).merge(trained(ct.BayesParams(), 300, 5)),
        ct.BadFeatures,
        "Classifier tools must be trained on the same measurements to be merged",
    ),
    (
        lambda: trained(ct.KNNParams(1, manhattan)).to_bytes(),
        ct.Corrupt,
        'Corrupt archive: unknown class "PythonMetric" at byte 69.',
    ),
    (lambda: ct.ClassifierTool.from_bytes(b""), ct.FileError, "stream: unexpected end at byte 0"),
    (
        lambda: ct.ClassifierTool.from_bytes(b"something else"),
        ct.FileError,
        "stream: not a file of ktKit::save, at byte 0",
    ),
    (lambda: ct.ClassifierTool.from_bytes(b"KTAR\x07" + bytes(20)), ct.UnknownVersion, "Unknown version in an archive: ktArchive."),
    (lambda: ct.ClassifierTool.load("no/such.kt"), ct.FileError, "no/such.kt: cannot be read"),
    (lambda: tree_tool().save("no/such.kt"), ct.FileError, "no/such.kt: cannot be written"),
    (lambda: tree_tool().save("no/such.kt", plain=True), ct.FileError, "no/such.kt: cannot be written"),
]


@pytest.mark.parametrize("row", REFUSED, ids=lambda row: row[2][:60])
def test_each_refusal(row: tuple[Callable[[], Any], type[ct.ClastoolError], str]) -> None:
    call, kind, text = row
    with pytest.raises(ct.ClastoolError) as caught:
        call()
    assert type(caught.value) is kind
    assert str(caught.value) == text
    assert caught.value.number == NUMBERS[kind]


@pytest.mark.parametrize("kind", NUMBERS, ids=lambda kind: kind.__name__)
def test_errors_are_python_s_too(kind: type[ct.ClastoolError]) -> None:
    error = kind("the text")
    assert (str(error), error.number) == ("the text", NUMBERS[kind])
    for base, kinds in ALSO.items():
        assert isinstance(error, base) == (kind in kinds)
    again = pickle.loads(pickle.dumps(error))
    assert type(again) is kind
    assert (str(again), again.number) == ("the text", NUMBERS[kind])


@pytest.mark.parametrize(
    ("call", "kind", "text"),
    [
        (lambda: train([1, 2], [1, 2]), ValueError, "measurements must be a table of numbers: two dimensions"),
        (lambda: train(np.ones((2, 2, 2)), [1, 2]), ValueError, "measurements must be a table of numbers: two dimensions"),
        (lambda: train([["a"]], [1]), ValueError, "could not convert string to float"),
        (lambda: train([[1j]], [1]), TypeError, "measurements must be real numbers, not complex ones"),
        (lambda: train([[1.0]], [1.0]), TypeError, "category labels must be whole numbers"),
        (lambda: train([[1.0]] * 2, [np.uint64(1), 2.0]), TypeError, "category labels must be whole numbers"),
        (lambda: train([[1.0]], ["a"]), TypeError, "category labels must be whole numbers"),
        (lambda: train([[1.0]] * 2, np.array([1, None])), TypeError, "category labels must be whole numbers"),
        (lambda: train([[1.0]], [[1]]), ValueError, "category labels must have one dimension"),
        (lambda: train([[1.0]], [1], 5), TypeError, "parameters are KNNParams or BayesParams"),
        (lambda: ct.FeaturePattern(3), ValueError, "a row of numbers has one dimension"),
        (lambda: ct.FeaturePattern([[3]]), ValueError, "a row of numbers has one dimension"),
        (lambda: trained(ct.KNNParams()).run_rows([[1] * 4], threads=-1), TypeError, "incompatible function arguments"),
    ],
)
def test_other_kinds_of_arguments(call: Callable[[], Any], kind: type[Exception], text: str) -> None:
    with pytest.raises(kind, match=text):
        call()


@pytest.mark.parametrize("name", ["neighbors", "bayes", "tree"])
def test_what_is_refused_changes_nothing(name: str) -> None:
    tool, before = TOOLS[name](), TOOLS[name]()
    changes: list[Callable[[], object]] = [
        lambda: tool.train([[np.nan]], [0], ct.KNNParams()),
        lambda: tool.train([[1.0]], [-1], ct.BayesParams()),
        lambda: tool.retrain(ct.KNNParams() if name == "bayes" else ct.BayesParams()),
        lambda: tool.add([[1.0]], [1]),
        lambda: tool.merge(ct.ClassifierTool()),
    ]
    for change in changes:
        with pytest.raises(ct.ClastoolError):
            change()
        assert tool == before


@pytest.mark.parametrize("plain", [False, True])
def test_damaged_bytes_end_in_an_error_or_in_a_tool(plain: bool) -> None:
    tool = trained(ct.KNNParams(2), 12)
    whole = tool.to_bytes(plain=plain)
    random = np.random.default_rng(4)
    refused = 0
    for _ in range(300):
        damaged = bytearray(whole)
        damaged[random.integers(len(whole))] ^= 1 << random.integers(8)
        try:
            loaded = ct.ClassifierTool.from_bytes(damaged[: None if random.random() < 0.8 else random.integers(len(whole))])
            loaded.run_rows(sample(3, 4, 3)[0])
        except ct.ClastoolError:
            refused += 1
    assert refused == 300 or plain
    assert refused > 50


def test_damaged_files_are_named(tmp_path: Path) -> None:
    path = tmp_path / "tool.kt"
    trained(ct.BayesParams()).save(path)
    whole = path.read_bytes()
    path.write_bytes(whole[:-1])
    with pytest.raises(ct.FileError) as caught:
        ct.ClassifierTool.load(path)
    assert str(caught.value) == f"{path}: damaged or cut short: the checksum at byte {len(whole) - 5} does not match"


@pytest.mark.parametrize("plain", [False, True])
def test_a_name_that_the_system_would_cut_is_refused(plain: bool, tmp_path: Path) -> None:
    name = f"{tmp_path}/tool\0.kt"
    with pytest.raises(ValueError, match="^embedded null byte$"):
        trained(ct.BayesParams()).save(name, plain=plain)
    with pytest.raises(ValueError, match="^embedded null byte$"):
        ct.ClassifierTool.load(name)
    assert list(tmp_path.iterdir()) == []
