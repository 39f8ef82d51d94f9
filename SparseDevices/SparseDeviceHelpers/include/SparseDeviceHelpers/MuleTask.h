#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <tuple>
#include <utility>
#include <vector>

/// How often a mule runs a task.
enum class FunctionType : std::int32_t {
    Once = 0,
    Repeating = 1,  ///< on every pass, until it is removed
};

/// Priority (the smallest runs first), what to do, how often.
using MuleTask = std::tuple<int, std::function<void()>, FunctionType>;

/// Heap order of tasks. Tasks of equal priority come out in no particular order.
struct ComparePriorityFunction {
    bool operator()(MuleTask const& left, MuleTask const& right) const {
        return std::get<int>(left) > std::get<int>(right);
    }
};

/// Tasks that wait, as a heap. No lock: its owner guards it.
class MuleTaskQueue {
public:
    bool IsEmpty() const { return m_heap.empty(); }
    std::size_t Size() const { return m_heap.size(); }

    void Push(MuleTask task) {
        m_heap.push_back(std::move(task));
        std::push_heap(m_heap.begin(), m_heap.end(), ComparePriorityFunction());
    }

    /// Runs the foremost task, then takes it out. The queue must not be empty. A task without a function
    /// throws std::bad_function_call.
    void RunTop() {
        std::function<void()> const run = std::move(std::get<1>(m_heap.front()));
        run();
        std::pop_heap(m_heap.begin(), m_heap.end(), ComparePriorityFunction());
        m_heap.pop_back();
    }

    /// Moves every task that is to run once into another queue; the others are dropped.
    void MoveOnceTo(MuleTaskQueue& other) {
        for (MuleTask& task : m_heap) {
            if (std::get<FunctionType>(task) != FunctionType::Repeating) {
                other.Push(std::move(task));
            }
        }
        m_heap.clear();
    }

private:
    std::vector<MuleTask> m_heap;
};
