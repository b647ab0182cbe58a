from clastool.sklearn import KNeighborsCostClassifier

parts = [[1.0, 2.0], [1.2, 1.9], [1.6, 2.4]]  # of each its length and its weight
kinds = ["sound", "sound", "broken"]
costs = {("broken", "sound"): 10, "default": 1}  # a broken part called sound costs 10
model = KNeighborsCostClassifier(3, costs=costs).fit(parts, kinds)
part = [[1.1, 2.1]]
print(f"{model.predict(part)[0]}, cost {model.expected_costs(part).min():.6g}")
