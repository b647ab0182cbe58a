# %% [markdown]
# # Choosing a technique by what its mistakes cost
#
# A biopsy is measured, and a program says whether it is malignant. To call a benign one malignant costs another examination. To call a
# malignant one benign costs far more: say twenty times as much. Which technique, and which parameters, then cost the least?
#
# The data are the 569 biopsies that scikit-learn brings. Each has 30 measurements.

# %%
from typing import Any

import numpy as np
from clastool.plots import CostConfusionDisplay, CostRatioDisplay, DecisionRegionsDisplay
from clastool.sklearn import BayesCostClassifier, KNeighborsCostClassifier
from sklearn.datasets import load_breast_cancer
from sklearn.model_selection import StratifiedKFold, cross_validate, train_test_split
from sklearn.pipeline import make_pipeline
from sklearn.preprocessing import StandardScaler

data = load_breast_cancer(as_frame=True)
table = data.data[["mean radius", "mean texture", "mean smoothness", "mean concavity", "worst radius", "worst texture"]]
kind = np.array(["malignant", "benign"])[data.target]
costs = {("malignant", "benign"): 20, ("benign", "malignant"): 1}

# %% [markdown]
# Costs are part of the estimators, so cross-validation compares what would be paid. Here that is the mean cost of a biopsy, and beside
# it the accuracy, which does not know what mistakes cost.


# %%
def paid(model: Any, X: Any, y: Any) -> float:
    decided = model.predict(X)
    return float(np.mean([0 if a == b else costs[a, b] for a, b in zip(y, decided)]))


candidates = {
    "neighbours, k = 5": make_pipeline(StandardScaler(), KNeighborsCostClassifier(5, costs=costs)),
    "neighbours, k = 15": make_pipeline(StandardScaler(), KNeighborsCostClassifier(15, costs=costs)),
    "Bayes, independent": BayesCostClassifier(costs=costs),
    "Bayes, joint": BayesCostClassifier(groups="all", costs=costs),
    "Bayes, joint, unit costs": BayesCostClassifier(groups="all"),
}
folds = StratifiedKFold(5, shuffle=True, random_state=0)
for name, model in candidates.items():
    scores = cross_validate(model, table, kind, cv=folds, scoring={"paid": paid, "accuracy": "accuracy"})
    print(f"{name:26} cost {scores['test_paid'].mean():.2f}   accuracy {scores['test_accuracy'].mean():.2f}")

# %% [markdown]
# The estimator that knows the costs pays less than its twin that does not, and is right less often: it calls doubtful biopsies
# malignant.
#
# ## What is decided, and what that costs
#
# The matrix shows the decisions on biopsies that were left out of the training, and what each kind of mistake costs in sum.

# %%
X, test, y, truth = train_test_split(table, kind, test_size=0.4, stratify=kind, random_state=0)
model = BayesCostClassifier(groups="all", costs=costs).fit(X, y)
CostConfusionDisplay.from_estimator(model, test, truth)
print(f"a biopsy costs {model.paid_cost(test, truth):.2f}; {model.expected_costs(test).min(axis=1).mean():.2f} were expected")

# %% [markdown]
# ## When is it better not to measure at all?
#
# Over the ratio of the two costs the curve shows what decisions cost on average. The dotted lines are those of a program that always
# says the same. The estimator is fitted once: other costs need no training.

# %%
CostRatioDisplay.from_estimator(model, test, truth, ("malignant", "benign"))

# %% [markdown]
# ## Where costs move the border
#
# With two of the measurements the decisions can be drawn. Paler places are those where a decision is expected to cost more. `recost`
# takes the other costs without a new fit.

# %%
two = X[["mean radius", "mean texture"]]
plane = BayesCostClassifier(groups="all", costs={"default": 1}).fit(two, y)
DecisionRegionsDisplay.from_estimator(plane, two, y).ax_.set_title("every mistake costs 1")

# %%
plane.recost(costs=costs)
DecisionRegionsDisplay.from_estimator(plane, two, y).ax_.set_title("a malignant one called benign costs 20")
