# %% [markdown]
# # Choosing a technique by what its mistakes cost
#
# A biopsy is measured, and a program decides whether it is malignant. Calling a benign biopsy malignant costs another examination. Calling
# a malignant one benign costs far more, here twenty times as much. Which technique, with which parameters, then costs the least?
#
# The data are 569 biopsies from scikit-learn. Each has 30 measurements.

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
# Costs are a parameter of the estimators, so cross-validation can compare the costs of decisions. The table shows the mean cost of a
# biopsy. It also shows the accuracy, which ignores costs.


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
# The joint estimator with these costs pays less than the one with unit costs. It is right less often, because it calls doubtful biopsies
# malignant.
#
# ## What is decided, and what that costs
#
# The matrix shows the decisions on biopsies outside the training data, and the total cost of each kind of mistake.

# %%
X, test, y, truth = train_test_split(table, kind, test_size=0.4, stratify=kind, random_state=0)
model = BayesCostClassifier(groups="all", costs=costs).fit(X, y)
CostConfusionDisplay.from_estimator(model, test, truth)
print(f"a biopsy costs {model.paid_cost(test, truth):.2f}; {model.expected_costs(test).min(axis=1).mean():.2f} were expected")

# %% [markdown]
# ## When is it better not to measure at all?
#
# The curve shows the mean cost of decisions over the ratio of the two costs. The dotted lines are those of a program that always makes the
# same decision. The estimator is fitted once, because other costs need no training.

# %%
CostRatioDisplay.from_estimator(model, test, truth, ("malignant", "benign"))

# %% [markdown]
# ## Where costs move the border
#
# With only two measurements the decisions can be drawn. Paler places have a higher expected cost. `recost` takes other costs without a
# new fit.

# %%
two = X[["mean radius", "mean texture"]]
plane = BayesCostClassifier(groups="all", costs={"default": 1}).fit(two, y)
DecisionRegionsDisplay.from_estimator(plane, two, y).ax_.set_title("every mistake costs 1")

# %%
plane.recost(costs=costs)
DecisionRegionsDisplay.from_estimator(plane, two, y).ax_.set_title("a malignant one called benign costs 20")
