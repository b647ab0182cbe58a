#include <clastool/training_data.h>

#include <iostream>
#include <map>
#include <string>
#include <vector>

// [technique]
/// Categories of words by the letters that they are written with: for each category the share of its training words that hold
/// a letter, and the match score of a word is the product over its letters.
class LetterClassifier {
public:
    void learn(const std::string& word, long label)
    {
        Category& category = categories_[label];
        category.words += 1.0;
        for (char letter = 'a'; letter <= 'z'; ++letter) {
            category.holding[letter] += word.find(letter) != std::string::npos ? 1 : 0;
        }
    }

    /// Match scores are the technique's own affair; costs and frequencies are the decision rule's.
    ktClassifierResult run(const std::string& word, const ktClassifierFrequencies& frequencies,
                           const ktClassifierCosts& costs) const
    {
        std::vector<ktClassifierCategoryResult> matches;
        for (const auto& [label, category] : categories_) {
            double match = 1.0;
            for (const char letter : word) {
                match *= (category.holding.at(letter) + 0.5) / (category.words + 1.0);
            }
            matches.emplace_back(label, match, 0.0, 0.0);
        }
        return ktClassifierResult(matches, frequencies, costs, 0.0);
    }

private:
    struct Category {
        double words = 0.0;
        std::map<char, double> holding;
    };

    std::map<long, Category> categories_;
};
// [technique]

int main()
{
    LetterClassifier classifier;
    for (const char* word : {"anna", "hanna", "nina", "ina"}) {
        classifier.learn(word, 0);
    }
    for (const char* word : {"otto", "bob", "tom", "boris"}) {
        classifier.learn(word, 1);
    }
    const ktClassifierResult result = classifier.run("tina", ktClassifierFrequencies(), ktClassifierCosts());
    std::cout << "category " << result.categoryResults().front().categoryLabel() << "\n";
}
