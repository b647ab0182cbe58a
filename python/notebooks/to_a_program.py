# %% [markdown]
# # From scikit-learn to a C++ line
#
# A classifier is chosen where the data are. It runs where the parts are, in a C++ program beside the production line. Both use the same
# file.
#
# The data are 178 wines of three growers from scikit-learn. Each has 13 measurements.

# %%
import os
import tempfile

import numpy as np
from clastool import ClassifierTool
from clastool.__main__ import main
from clastool.plots import TreeDisplay
from clastool.sklearn import BayesCostClassifier
from clastool.trees import from_sklearn
from sklearn.datasets import load_wine
from sklearn.model_selection import cross_val_score
from sklearn.tree import DecisionTreeClassifier

data = load_wine(as_frame=True)
table, grower = data.data, np.array(["Arnaldo", "Bruno", "Carla"])[data.target]
groups = [["alcohol", "proline", "color_intensity"], ["flavanoids", "total_phenols", "hue"]]
model = BayesCostClassifier(groups=groups, costs={("Carla", "Bruno"): 4}, priors="equal")
print(f"accuracy {cross_val_score(model, table, grower, cv=5).mean():.2f}")

# %% [markdown]
# ## Into a file
#
# `save` writes two files. The C++ library loads the first one, with the tool. The second one is a JSON file with what only Python needs:
# the parameters, the names of the measurements, and the classes. Here the classes are strings, so the tool's labels are their places in
# `classes_`. Integers from 0 on would be the labels themselves.

# %%
model.fit(table, grower)
folder = tempfile.TemporaryDirectory()
path = os.path.join(folder.name, "wine.tool")
model.save(path)
print(sorted(os.listdir(folder.name)))
print(dict(enumerate(model.classes_.tolist())))

# %% [markdown]
# The same file from the command line, `python -m clastool show wine.tool`:

# %%
main(["show", path])

# %% [markdown]
# ## In a C++ program
#
# These lines belong to a program that is compiled and run with every change of the library:
#
# <!-- docs/programs/kit.cpp: run -->
# ```cpp
# const double rows[] = {9.0, 31.0, 15.0, std::nan("")};  // two patterns; what is not finite is missing
# for (const ktClassifierResult& result : ktKit::runAll(loaded, rows, 2, 2)) {
#     const long label = ktKit::decision(result).categoryLabel();
#     std::cout << table.labelNames[static_cast<std::size_t>(label)] << ", log-likelihood "
#               << ktKit::logLikelihood(result, label) << "\n";
# }
# ```
#
# `loaded` is the result of `ktKit::load("wine.tool")`. The Python extension contains the same library, so a loaded tool gives the same
# answers in Python and in the program, to the bit.

# %%
tool = ClassifierTool.load(path)
rows = tool.run_rows(table.to_numpy())
print("probabilities equal to the bit:", np.array_equal(rows.class_scores, model.predict_proba(table)))
print("expected costs equal to the bit:", np.array_equal(rows.expected_costs, model.expected_costs(table)))

# %% [markdown]
# If a measurement fails on the line, Bayes decides by the others.

# %%
gaps = table.to_numpy()[:3].copy()
gaps[:, [0, 6]] = np.nan
for result in (tool.run(row) for row in gaps):
    print(model.classes_[result.label], f"{result.decision.class_score:.3f}")

# %% [markdown]
# ## Trees of scikit-learn
#
# This library does not learn trees, but it runs those of scikit-learn, without scikit-learn. The decisions are equal for every number,
# because thresholds are moved to where scikit-learn's rounding to float32 changes sides.

# %%
tree = DecisionTreeClassifier(max_depth=3, random_state=0).fit(table, grower)
same = from_sklearn(tree)
print("equal decisions:", np.array_equal(tree.classes_[same.run_rows(table.to_numpy()).labels], tree.predict(table)))
TreeDisplay.from_tool(same, feature_names=list(table.columns), class_names=list(tree.classes_))

# %%
folder.cleanup()
