#pragma once

#include <QString>

namespace Orv::Info::Plan {

// A command run around a backup. The program is the whole command line, the
// program's path in double quotes followed by its arguments. Off by default.
class Action
{
public:
    bool isEnabled() const { return m_enabled; }
    void setEnabled(bool enabled) { m_enabled = enabled; }
    QString program() const { return m_program; }
    void setProgram(const QString& program) { m_program = program; }

private:
    bool m_enabled = false;
    QString m_program;
};

// Runs before the plan. By default a failing pre-action stops the plan: a
// script that prepares the data (a database dump) is usually a prerequisite.
class PreAction : public Action
{
public:
    bool terminateOnFailure() const { return m_terminateOnFailure; }
    void setTerminateOnFailure(bool terminate) { m_terminateOnFailure = terminate; }

private:
    bool m_terminateOnFailure = true;
};

// Runs after the plan; by default only after a plan that did not fail.
class PostAction : public Action
{
public:
    bool runOnBackupFailure() const { return m_runOnBackupFailure; }
    void setRunOnBackupFailure(bool run) { m_runOnBackupFailure = run; }

private:
    bool m_runOnBackupFailure = false;
};

class Actions
{
public:
    PreAction& pre() { return m_pre; }
    const PreAction& pre() const { return m_pre; }
    PostAction& post() { return m_post; }
    const PostAction& post() const { return m_post; }

private:
    PreAction m_pre;
    PostAction m_post;
};

} // namespace Orv::Info::Plan
