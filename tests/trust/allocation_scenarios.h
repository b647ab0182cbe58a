#pragma once

#include "support/test.h"

// What may run out of memory, as a list of labelled scenarios. Each is run with its 1st, 2nd, ... allocation failing, once
// only and once from there on, until it does without that allocation. A scenario says what the call is and what it is
// called on; what must hold afterwards is said here, once for each kind:
//
//     list.keeps("costs: cost overridden", [] { return ktClassifierCosts(2.0); },
//                [](ktClassifierCosts& costs) { costs.misclassificationCostOverride(1, 2, 3.0); });
//     list.asks("costs: copied", ktClassifierCosts(2.0), [](const ktClassifierCosts& costs) { return costs; });

namespace trust {

struct Scenario {
    std::string label;
    /// Whether the call allocates at all. Where it does not, there is nothing that could fail.
    bool allocates;
    /// Returns the number of allocations that failed in turn.
    std::function<long()> failEach;
};

// The value of what a scenario works on, as an archive has it: it holds what `==` leaves out.

template <class T>
std::string bytesOf(const T& value)
{
    return kt_test::store(value);
}

template <class A, class B>
std::string bytesOf(const std::pair<A, B>& both)
{
    return bytesOf(both.first) + bytesOf(both.second);
}

inline std::string bytesOf(const ktNormalDensity& density)
{
    return kt_test::store(density.mean(), density.covariance(), density.count(), long{density.isUnused()});
}

template <class T, class = void>
struct HasEquality : std::false_type {
};
template <class T>
struct HasEquality<T, std::void_t<decltype(std::declval<const T&>() == std::declval<const T&>())>> : std::true_type {
};
/// That of handles asks for the same object, which a copy's never is.
template <class T>
struct HasEquality<ktPtrHandle<T>> : std::false_type {
};

/// By `==` where there is one; the bytes are compared everywhere.
template <class T>
bool isSame(const T& a, const T& b)
{
    if constexpr (HasEquality<T>::value) {
        return a == b;
    } else {
        return true;
    }
}

template <class A, class B>
bool isSame(const std::pair<A, B>& a, const std::pair<A, B>& b)
{
    return isSame(a.first, b.first) && isSame(a.second, b.second);
}

template <class T>
void expectSame(const T& value, const T& expected, const std::string& expectedBytes)
{
    EXPECT_TRUE(isSame(value, expected));
    EXPECT_EQ(bytesOf(value), expectedBytes);
}

/// A call that the library refuses with an exception of its own, which needs memory too.
template <class Operation>
auto refused(Operation operation)
{
    return [operation](auto& state) {
        try {
            operation(state);
        } catch (const ktException&) {
            return;
        }
        ADD_FAILURE() << "not refused";
    };
}

/// Failed training holds no parameters, and may hold data; or the old state.
template <class Classifier>
void expectTrainingFailed(const Classifier& classifier, const Classifier& before)
{
    Classifier copy(classifier);
    if (copy == before) {
        return;
    }
    if (copy.isTrained()) {
        EXPECT_THROW(copy.trainParams(), ktClassifierDefs::BadMethod);
    }
    EXPECT_NO_THROW(copy.untrain());
    EXPECT_FALSE(copy.isTrained());
}

/// A question to nothing: a constructor, a free function.
struct Nothing {};

inline std::string bytesOf(const Nothing&)
{
    return {};
}

enum class Allocates { something, nothing };

class ScenarioList {
public:
    const std::vector<Scenario>& scenarios() const { return scenarios_; }

    /// A call that changes its object, and without memory leaves it as it was.
    template <class Prepare, class Operation>
    void keeps(const std::string& label, Prepare prepare, Operation operation, Allocates some = Allocates::something)
    {
        leaves(
            label, prepare, operation,
            [prepare](const auto& state) {
                const auto before = prepare();
                expectSame(state, before, bytesOf(before));
            },
            some);
    }

    /// A call that without memory leaves its object in a state of which `check(state)` knows what its class documents.
    template <class Prepare, class Operation, class Check>
    void leaves(const std::string& label, Prepare prepare, Operation operation, Check check,
                Allocates some = Allocates::something)
    {
        add(label, some, [=] {
            auto after = prepare();
            operation(after);
            const std::string bytes = bytesOf(after);
            return kt_test::failEachAllocation(prepare, operation, check,
                                               [&](const auto& state) { expectSame(state, after, bytes); });
        });
    }

    /// A call that leaves its object alone, whatever happens, and answers with a value: a copy, a getter, a run.
    template <class Source, class Question>
    void asks(const std::string& label, const Source& source, Question question, Allocates some = Allocates::something)
    {
        using Answer = decltype(question(source));
        struct State {
            Source source;
            std::optional<Answer> answer;
        };
        add(label, some, [=] {
            const std::string bytes = bytesOf(source);
            const Answer expected = question(source);
            const std::string expectedBytes = bytesOf(expected);
            return kt_test::failEachAllocation(
                [&] {
                    return State{source, {}};
                },
                [&](State& state) { state.answer.emplace(question(state.source)); },
                [&](const State& state) {
                    expectSame(state.source, source, bytes);
                    EXPECT_FALSE(state.answer.has_value());
                },
                [&](const State& state) {
                    expectSame(state.source, source, bytes);
                    expectSame(*state.answer, expected, expectedBytes);
                });
        });
    }

    /// A value that a constructor or a free function gives.
    template <class Make>
    void makes(const std::string& label, Make make, Allocates some = Allocates::something)
    {
        asks(
            label, Nothing{}, [make](const Nothing&) { return make(); }, some);
    }

    /// Copy, assignment, comparison, storing and loading of a class; `some` says whether copies allocate.
    template <class T>
    void values(const std::string& name, const T& small, const T& large, Allocates some = Allocates::something)
    {
        asks(
            name + ": copied", large, [](const T& value) { return T(value); }, some);
        keeps(
            name + ": assigned", [small] { return T(small); }, [large](T& value) { value = large; }, some);
        asks(
            name + ": compared", std::make_pair(large, large),
            [](const std::pair<T, T>& both) { return isSame(both.first, both.second) ? 1L : 0L; }, Allocates::nothing);
        storedAndLoaded(name, small, large);
    }

    /// Storing into an archive, and loading over another value; by pointer too where the registry knows the class. What a
    /// failed load leaves can be copied, assigned and loaded again.
    template <class T>
    void storedAndLoaded(const std::string& name, const T& small, const T& large)
    {
        asks(name + ": stored", large, [](const T& value) { return kt_test::store(value); });
        leaves(
            name + ": loaded", [small] { return T(small); },
            [bytes = kt_test::store(large)](T& value) { kt_test::loadInto(value, bytes); },
            [small](const T& value) {
                T copy(value);
                copy = small;
                expectSame(copy, small, bytesOf(small));
            });
        if constexpr (std::is_base_of_v<ktPersistent, T>) {
            if (kt_Instantiator::find(typeid(T)) != nullptr) {
                asks(name + ": stored by pointer", large,
                     [](const T& value) { return kt_test::storeByPointer(value); });
                makes(name + ": loaded by pointer",
                      [bytes = kt_test::storeByPointer(large)] { return T(*kt_test::loadByPointer<T>(bytes)); });
            }
        }
    }

private:
    void add(const std::string& label, Allocates some, std::function<long()> failEach)
    {
        scenarios_.push_back({label, some == Allocates::something, std::move(failEach)});
    }

    std::vector<Scenario> scenarios_;
};

void listFoundation(ScenarioList& list);
void listValues(ScenarioList& list);
void listBayes(ScenarioList& list);
void listNeighbors(ScenarioList& list);
void listTrees(ScenarioList& list);
void listRules(ScenarioList& list);
void listTools(ScenarioList& list);

inline const std::vector<Scenario>& allScenarios()
{
    static const std::vector<Scenario> all = [] {
        ScenarioList list;
        listFoundation(list);
        listValues(list);
        listBayes(list);
        listNeighbors(list);
        listTrees(list);
        listRules(list);
        listTools(list);
        return list.scenarios();
    }();
    return all;
}

}  // namespace trust
