# %% [markdown]
# # Inspection by fuzzy rules
#
# Turned rings are graded by three measurements: diameter, width and roughness. There are no labelled rings to learn from. But an inspector
# knows what a good ring is, and her rules become a rule table.
#
# A rule has a scoring function for each measurement. A score of 0 means that the measurement does not fit, 1 that it fits well. The
# geometric mean of the scores says how well a ring fits the rule. The first rule whose score exceeds a threshold decides.

# %%
import numpy as np
from clastool import FeatureScoreIgnore, FeatureScoreOneSided, FeatureScoreTwoSided, Rule, RuleTable
from clastool.plots import RuleTableDisplay, ScoringFunctionDisplay
from matplotlib import pyplot as plt

GOOD, REWORK, SCRAP = 0, 1, 2
NAMES = {GOOD: "good", REWORK: "rework", SCRAP: "scrap", -1: "no rule"}

# %% [markdown]
# ## Scoring functions
#
# The diameter should be 20.0 mm. It fits fully between 19.9 and 20.1, and not at all outside 19.8 to 20.2.

# %%
diameter = FeatureScoreTwoSided(x0=19.8, x1=19.9, xc=20.0, x0h=20.2, x1h=20.1, xch=20.0, y0=0.0, y1=1.0, y0h=0.0, y1h=1.0)
too_large = FeatureScoreOneSided(x0=20.1, x1=20.2, xc=21.0, y0=0.0, y1=1.0)
width = FeatureScoreTwoSided(x0=4.8, x1=4.9, xc=5.0, x0h=5.2, x1h=5.1, xch=5.0, y0=0.0, y1=1.0, y0h=0.0, y1h=1.0)
smooth = FeatureScoreOneSided(x0=4.0, x1=2.0, xc=-1.0, y0=0.0, y1=1.0)
anything = FeatureScoreIgnore()
display = ScoringFunctionDisplay.from_function(diameter, 19.6, 20.4, name="diameter / mm")
print([round(diameter(x), 2) for x in (19.75, 19.85, 20.0, 20.15)])

# %% [markdown]
# ## The table
#
# A ring that is too large can be turned once more. A ring that fits no other rule is scrap: the last rule ignores all measurements, and
# its score is always 1.

# %%
table = RuleTable(
    [
        Rule([diameter, width, smooth], GOOD),
        Rule([too_large, width, anything], REWORK),
        Rule([anything, anything, anything], SCRAP),
    ]
)
ranges = [(19.6, 20.6), (4.6, 5.4), (0.0, 6.0)]
RuleTableDisplay.from_table(table, ranges, names=["diameter / mm", "width / mm", "roughness / µm"])

# %%
for ring in ([20.02, 5.01, 1.5], [20.35, 5.0, 3.0], [19.7, 5.0, 1.0], [20.12, 5.0, 1.8]):
    scores = [round(rule.score(ring), 2) for rule in table.rules]
    print(ring, scores, NAMES[table.classify(ring, 0.5)])

# %% [markdown]
# ## What the threshold does
#
# With a higher threshold fewer rings are good. The picture shows the decisions over diameter and width, for a roughness of 2.5 µm.

# %%
figure, axes = plt.subplots(1, 2, figsize=(8, 3.4), layout="constrained", sharey=True)
x, y = np.meshgrid(np.linspace(19.7, 20.5, 160), np.linspace(4.7, 5.3, 120))
for ax, threshold in zip(axes, (0.3, 0.8)):
    decided = [table.classify([a, b, 2.5], threshold) for a, b in zip(x.ravel().tolist(), y.ravel().tolist())]
    ax.contourf(x, y, np.reshape(decided, x.shape), levels=[-0.5, 0.5, 1.5, 2.5], colors=["#0b5fa5", "#fdc57e", "#a63a00"])
    ax.set(xlabel="diameter / mm", title=f"threshold {threshold}")
axes[0].set_ylabel("width / mm")
print("blue: good, yellow: rework, red: scrap")
