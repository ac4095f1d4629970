// /vapix/services: the action service (action1: rules and configurations) and
// the event service (event1: scheduled events) over SOAP 1.2, stateful.
#include <cstdlib>
#include <functional>
#include <optional>

#include "endpoints/Endpoint.h"
#include "endpoints/SoapMessage.h"

namespace camsim {

namespace {

std::optional<int> ParseId(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || value <= 0 || value > 0x7fffffff) return std::nullopt;
  return static_cast<int>(value);
}

void AppendText(pugi::xml_node parent, const char* name, const std::string& text) {
  parent.append_child(name).text() = text.c_str();
}

HttpResponse Answer(const char* operation, const std::function<void(pugi::xml_node)>& fill) {
  pugi::xml_document doc;
  pugi::xml_node response = soap::StartAnswer(doc).append_child(operation);
  if (fill) fill(response);
  return soap::FinishAnswer(doc);
}

// --- action1 -----------------------------------------------------------------

HttpResponse GetActionRules(EndpointContext& context) {
  auto rules = context.state.Read([](const StateData& s) { return s.rules; });
  return Answer("aa:GetActionRulesResponse", [&](pugi::xml_node response) {
    pugi::xml_node list = response.append_child("aa:ActionRules");
    for (const ActionRule& rule : rules) {
      pugi::xml_node node = list.append_child("aa:ActionRule");
      AppendText(node, "aa:RuleID", std::to_string(rule.id));
      AppendText(node, "aa:Name", rule.name);
      AppendText(node, "aa:Enabled", rule.enabled ? "true" : "false");
      pugi::xml_node conditions = node.append_child("aa:Conditions");
      for (const EventCondition& condition : rule.conditions) {
        pugi::xml_node c = conditions.append_child("aa:Condition");
        pugi::xml_node topic = c.append_child("wsnt:TopicExpression");
        topic.append_attribute("Dialect") = condition.topicDialect.c_str();
        topic.text() = condition.topic.c_str();
        pugi::xml_node content = c.append_child("wsnt:MessageContent");
        content.append_attribute("Dialect") = condition.contentDialect.c_str();
        content.text() = condition.content.c_str();
      }
      AppendText(node, "aa:PrimaryAction", std::to_string(rule.primaryAction));
    }
  });
}

HttpResponse AddActionRule(const pugi::xml_node& operation, EndpointContext& context) {
  pugi::xml_node input = soap::Child(operation, "NewActionRule");
  if (!input) return soap::Fault(true, "", "AddActionRule needs a NewActionRule");
  ActionRule rule;
  rule.name = soap::ChildText(input, "Name");
  const std::string enabled = soap::ChildText(input, "Enabled");
  if (!enabled.empty() && enabled != "true" && enabled != "false" && enabled != "1" && enabled != "0") {
    return soap::Fault(true, "", "Enabled must be a boolean");
  }
  rule.enabled = enabled.empty() || enabled == "true" || enabled == "1";
  const auto primary = ParseId(soap::ChildText(input, "PrimaryAction"));
  if (!primary) return soap::Fault(true, "", "PrimaryAction must be a configuration id");
  rule.primaryAction = *primary;
  if (pugi::xml_node conditions = soap::Child(input, "Conditions")) {
    for (pugi::xml_node c = conditions.first_child(); c; c = c.next_sibling()) {
      if (c.type() != pugi::node_element || soap::LocalName(c) != "Condition") continue;
      pugi::xml_node topic = soap::Child(c, "TopicExpression");
      pugi::xml_node content = soap::Child(c, "MessageContent");
      if (!topic) return soap::Fault(true, "", "a Condition needs a TopicExpression");
      rule.conditions.push_back(EventCondition{topic.attribute("Dialect").value(), topic.text().get(),
                                               content.attribute("Dialect").value(), content.text().get()});
    }
  }
  const std::optional<int> id = context.state.Modify([&](StateData& s) -> std::optional<int> {
    bool known = false;
    for (const auto& configuration : s.configurations) known = known || configuration.id == rule.primaryAction;
    if (!known) return std::nullopt;
    rule.id = s.nextRuleId++;
    s.rules.push_back(rule);
    return rule.id;
  });
  if (!id) return soap::Fault(true, "aa:InvalidConfigurationID", "No action configuration with that id");
  return Answer("aa:AddActionRuleResponse",
                [&](pugi::xml_node response) { AppendText(response, "aa:RuleID", std::to_string(*id)); });
}

HttpResponse RemoveActionRule(const pugi::xml_node& operation, EndpointContext& context) {
  const auto id = ParseId(soap::ChildText(operation, "RuleID"));
  if (!id) return soap::Fault(true, "", "RuleID must be a rule id");
  const bool removed = context.state.Modify([&](StateData& s) {
    for (auto it = s.rules.begin(); it != s.rules.end(); ++it) {
      if (it->id == *id) {
        s.rules.erase(it);
        return true;
      }
    }
    return false;
  });
  if (!removed) return soap::Fault(true, "aa:InvalidRuleID", "No action rule with that id");
  return Answer("aa:RemoveActionRuleResponse", nullptr);
}

HttpResponse GetActionConfigurations(EndpointContext& context) {
  auto configurations = context.state.Read([](const StateData& s) { return s.configurations; });
  return Answer("aa:GetActionConfigurationsResponse", [&](pugi::xml_node response) {
    pugi::xml_node list = response.append_child("aa:ActionConfigurations");
    for (const ActionConfiguration& configuration : configurations) {
      pugi::xml_node node = list.append_child("aa:ActionConfiguration");
      AppendText(node, "aa:ConfigurationID", std::to_string(configuration.id));
      AppendText(node, "aa:Name", configuration.name);
      AppendText(node, "aa:TemplateToken", configuration.templateToken);
      pugi::xml_node parameters = node.append_child("aa:Parameters");
      for (const ActionParameter& parameter : configuration.parameters) {
        pugi::xml_node p = parameters.append_child("aa:Parameter");
        p.append_attribute("Name") = parameter.name.c_str();
        p.append_attribute("Value") = parameter.value.c_str();
      }
    }
  });
}

HttpResponse AddActionConfiguration(const pugi::xml_node& operation, EndpointContext& context) {
  pugi::xml_node input = soap::Child(operation, "NewActionConfiguration");
  if (!input) return soap::Fault(true, "", "AddActionConfiguration needs a NewActionConfiguration");
  ActionConfiguration configuration;
  configuration.name = soap::ChildText(input, "Name");
  configuration.templateToken = soap::ChildText(input, "TemplateToken");
  if (configuration.templateToken.empty()) {
    return soap::Fault(true, "aa:InvalidTemplateToken", "A TemplateToken is required");
  }
  if (pugi::xml_node parameters = soap::Child(input, "Parameters")) {
    for (pugi::xml_node p = parameters.first_child(); p; p = p.next_sibling()) {
      if (p.type() != pugi::node_element || soap::LocalName(p) != "Parameter") continue;
      if (!p.attribute("Name")) return soap::Fault(true, "", "a Parameter needs a Name");
      configuration.parameters.push_back({p.attribute("Name").value(), p.attribute("Value").value()});
    }
  }
  const int id = context.state.Modify([&](StateData& s) {
    configuration.id = s.nextConfigurationId++;
    s.configurations.push_back(configuration);
    return configuration.id;
  });
  return Answer("aa:AddActionConfigurationResponse",
                [&](pugi::xml_node response) { AppendText(response, "aa:ConfigurationID", std::to_string(id)); });
}

HttpResponse RemoveActionConfiguration(const pugi::xml_node& operation, EndpointContext& context) {
  const auto id = ParseId(soap::ChildText(operation, "ConfigurationID"));
  if (!id) return soap::Fault(true, "", "ConfigurationID must be a configuration id");
  const bool removed = context.state.Modify([&](StateData& s) {
    for (auto it = s.configurations.begin(); it != s.configurations.end(); ++it) {
      if (it->id == *id) {
        s.configurations.erase(it);
        return true;
      }
    }
    return false;
  });
  if (!removed) return soap::Fault(true, "aa:InvalidConfigurationID", "No action configuration with that id");
  return Answer("aa:RemoveActionConfigurationResponse", nullptr);
}

// --- event1 ------------------------------------------------------------------

HttpResponse GetScheduledEvents(EndpointContext& context) {
  auto events = context.state.Read([](const StateData& s) { return s.events; });
  return Answer("aev:GetScheduledEventsResponse", [&](pugi::xml_node response) {
    pugi::xml_node list = response.append_child("aev:ScheduledEvents");
    for (const ScheduledEvent& event : events) {
      pugi::xml_node node = list.append_child("aev:ScheduledEvent");
      AppendText(node, "aev:EventID", event.id);
      AppendText(node, "aev:Name", event.name);
      pugi::xml_node calendar = node.append_child("aev:Schedule").append_child("aev:ICalendar");
      calendar.append_attribute("Dialect") = soap::kIcalDialect;
      calendar.text() = event.icalendar.c_str();
    }
  });
}

HttpResponse AddScheduledEvent(const pugi::xml_node& operation, EndpointContext& context) {
  pugi::xml_node input = soap::Child(operation, "NewScheduledEvent");
  if (!input) return soap::Fault(true, "", "AddScheduledEvent needs a NewScheduledEvent");
  ScheduledEvent event;
  event.name = soap::ChildText(input, "Name");
  event.id = soap::ChildText(input, "EventID");
  event.icalendar = soap::ChildText(soap::Child(input, "Schedule"), "ICalendar");
  if (event.icalendar.find("DTSTART") == std::string::npos) {
    return soap::Fault(true, "aev:InvalidICalendar", "The schedule needs an iCalendar text with DTSTART");
  }
  const std::optional<std::string> id = context.state.Modify([&](StateData& s) -> std::optional<std::string> {
    if (event.id.empty()) event.id = "com.axis.schedules.genid.id" + std::to_string(s.nextEventNumber++);
    for (const auto& existing : s.events) {
      if (existing.id == event.id) return std::nullopt;
    }
    s.events.push_back(event);
    return event.id;
  });
  if (!id) return soap::Fault(true, "aev:InvalidEventID", "A scheduled event with that id exists");
  return Answer("aev:AddScheduledEventResponse",
                [&](pugi::xml_node response) { AppendText(response, "aev:EventID", *id); });
}

HttpResponse RemoveScheduledEvent(const pugi::xml_node& operation, EndpointContext& context) {
  const std::string id = soap::ChildText(operation, "EventID");
  const bool removed = context.state.Modify([&](StateData& s) {
    for (auto it = s.events.begin(); it != s.events.end(); ++it) {
      if (it->id == id) {
        s.events.erase(it);
        return true;
      }
    }
    return false;
  });
  if (!removed) return soap::Fault(true, "aev:InvalidEventID", "No scheduled event with that id");
  return Answer("aev:RemoveScheduledEventResponse", nullptr);
}

}  // namespace

HttpResponse HandleVapixServices(const HttpRequest& request, EndpointContext& context) {
  if (request.method != "POST") return soap::Fault(true, "", "SOAP requests are POSTed");
  pugi::xml_document doc;
  std::string problem;
  pugi::xml_node operation = soap::FindOperation(doc, request.body, problem);
  if (!operation) return soap::Fault(true, "", problem);
  const std::string service = soap::NamespaceOf(operation);
  const std::string_view name = soap::LocalName(operation);

  if (service == soap::kActionService) {
    if (name == "GetActionRules") return GetActionRules(context);
    if (name == "AddActionRule") return AddActionRule(operation, context);
    if (name == "RemoveActionRule") return RemoveActionRule(operation, context);
    if (name == "GetActionConfigurations") return GetActionConfigurations(context);
    if (name == "AddActionConfiguration") return AddActionConfiguration(operation, context);
    if (name == "RemoveActionConfiguration") return RemoveActionConfiguration(operation, context);
  } else if (service == soap::kEventService) {
    if (name == "GetScheduledEvents") return GetScheduledEvents(context);
    if (name == "AddScheduledEvent") return AddScheduledEvent(operation, context);
    if (name == "RemoveScheduledEvent") return RemoveScheduledEvent(operation, context);
  }
  return soap::Fault(
      true, "", "Operation not supported: " + std::string(name) + (service.empty() ? std::string() : " in " + service));
}

}  // namespace camsim
