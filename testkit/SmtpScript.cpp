#include "SmtpScript.h"

#include <algorithm>
#include <utility>

namespace kvtest {

namespace {

bool Holds(const std::optional<int>& wanted, int actual) {
    return !wanted || *wanted == actual;
}

}  // namespace

bool ScriptRule::matches(const CommandContext& context) const {
    if (step != context.step && step != step::Any) {
        return false;
    }
    if (recipient && context.step == "RCPT" && *recipient != context.address) {
        return false;
    }
    if (recipient && std::ranges::find(context.recipients, *recipient) == context.recipients.end()) {
        return false;
    }
    return Holds(occurrence, context.occurrence) && Holds(connection, context.connection) &&
           Holds(transaction, context.transaction) && (!insideTls || *insideTls == context.insideTls) &&
           (!times || *times > 0);
}

void SmtpScript::add(ScriptRule rule) {
    const std::lock_guard lock(m_mutex);
    m_rules.push_back(std::move(rule));
}

void SmtpScript::add(ByteLimit limit) {
    const std::lock_guard lock(m_mutex);
    m_limits.push_back(limit);
}

void SmtpScript::clear() {
    const std::lock_guard lock(m_mutex);
    m_rules.clear();
    m_limits.clear();
}

Reply SmtpScript::replyTo(const CommandContext& context) {
    const ReplyFunction answer = chosenFor(context);
    // Called without the lock: the function may take its time, or add rules.
    return answer ? answer(context) : context.defaultReply;
}

ReplyFunction SmtpScript::chosenFor(const CommandContext& context) {
    const std::lock_guard lock(m_mutex);
    const auto rule = std::find_if(m_rules.rbegin(), m_rules.rend(),
                                   [&](const ScriptRule& each) { return each.matches(context); });
    if (rule == m_rules.rend()) {
        return nullptr;
    }
    if (rule->times) {
        --*rule->times;
    }
    return rule->answer;
}

std::optional<ByteLimit> SmtpScript::byteLimit(int connection) const {
    const std::lock_guard lock(m_mutex);
    const auto limit = std::find_if(m_limits.rbegin(), m_limits.rend(), [&](const ByteLimit& each) {
        return each.connection == 0 || each.connection == connection;
    });
    return limit == m_limits.rend() ? std::nullopt : std::optional(*limit);
}

RuleBuilder::RuleBuilder(SmtpScript& script, std::string step) : m_script(script) {
    m_rule.step = std::move(step);
}

RuleBuilder& RuleBuilder::occurrence(int n) {
    m_rule.occurrence = n;
    return *this;
}

RuleBuilder& RuleBuilder::connection(int n) {
    m_rule.connection = n;
    return *this;
}

RuleBuilder& RuleBuilder::transaction(int n) {
    m_rule.transaction = n;
    return *this;
}

RuleBuilder& RuleBuilder::times(int n) {
    m_rule.times = n;
    return *this;
}

RuleBuilder& RuleBuilder::inClear() {
    m_rule.insideTls = false;
    return *this;
}

RuleBuilder& RuleBuilder::insideTls() {
    m_rule.insideTls = true;
    return *this;
}

RuleBuilder& RuleBuilder::recipient(const std::string& address) {
    m_rule.recipient = address;
    return *this;
}

void RuleBuilder::reply(const Reply& reply) {
    answer([reply](const CommandContext&) { return reply; });
}

void RuleBuilder::answer(ReplyFunction function) {
    m_rule.answer = std::move(function);
    m_script.add(m_rule);
}

}  // namespace kvtest
