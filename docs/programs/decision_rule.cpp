#include <clastool/training_data.h>

#include <iomanip>
#include <iostream>
#include <vector>

const long sound = 0;
const long broken = 1;

void print(const char* title, const ktClassifierResult& result)
{
    std::cout << title << "\n";
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        std::cout << "  " << (category.categoryLabel() == broken ? "broken" : "sound ") << "  match score "
                  << category.matchScore() << "  class score " << category.classScore() << "  expected cost "
                  << category.expectedCost() << "\n";
    }
}

int main()
{
    // [rule]
    const std::vector<ktClassifierCategoryResult> matches = {{sound, 0.5, 0.0, 0.0}, {broken, 0.8, 0.0, 0.0}};

    ktClassifierFrequencies frequencies;
    frequencies.categoryFrequencyOverride(sound, 0.9);
    frequencies.categoryFrequencyOverride(broken, 0.1);

    ktClassifierCosts costs(1.0);
    const ktClassifierResult equalCosts(matches, frequencies, costs, 0.0);

    costs.misclassificationCostOverride(broken, sound, 10.0);
    const ktClassifierResult missesAreDear(matches, frequencies, costs, 0.0);
    // [rule]
    std::cout << std::fixed << std::setprecision(3);
    print("Every mistake costs 1:", equalCosts);
    print("A broken part called sound costs 10:", missesAreDear);
}
