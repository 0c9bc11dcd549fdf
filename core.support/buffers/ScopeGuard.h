#pragma once

#include <utility>

// Runs an action when the scope ends, unless dismissed. Used to put cursors
// back on every exit of an operation, including exits by exception.
template <typename Action>
class ScopeGuard
{
public:
    explicit ScopeGuard(Action action) : m_action(std::move(action)) {}
    ~ScopeGuard()
    {
        if (!m_dismissed)
            m_action();
    }

    ScopeGuard(const ScopeGuard &) = delete;
    ScopeGuard &operator=(const ScopeGuard &) = delete;

    void dismiss() noexcept { m_dismissed = true; }

private:
    Action m_action;
    bool m_dismissed = false;
};
