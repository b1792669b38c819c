// The journal's message catalogue. Stateless: any thread.
#include "catalog/catalog.h"
#include "catalog/explain.h"

#include "generate/documents.h"
#include "text/wrap.h"

namespace catalog {

std::string JournalCatalog() {
  std::string all = "# What the events of rynd mean. Made from its catalogue.\n";
  for (const Event &event : Events()) {
    all += "\n-- " + MessageId(event.name) + "\nSubject: " + event.name + "\nDefined-By: rynd\n";
    all += "Documentation: man:rynd-events(7)\n\n";
    all += text::Wrap(event.means, 78, "", "") + "\n" + text::Wrap(event.impact, 78, "", "") + "\n";
    for (size_t i = 0; i < event.action.size(); ++i) {
      const std::string number = event.action.size() == 1 ? "" : std::to_string(i + 1) + ". ";
      all += text::Wrap(event.action[i], 78, number, std::string(number.size(), ' '));
    }
  }
  return all;
}

}  // namespace catalog
