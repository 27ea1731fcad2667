// SPDX-License-Identifier: Apache-2.0
#include "host/service/ControlClient.h"

#include "host/language/InputError.h"
#include "host/language/JsonText.h"

namespace Host {

using nlohmann::json;

std::string errorAnswer(json const& id, int status, std::string const& why, json more) {
  more["error"] = why;
  more["status"] = status;
  if (!id.is_null()) more["id"] = id;
  return jsonText(more) + '\n';
}

std::string answerText(json const& id, bool withoutText, Answer const& answer) {
  // That of most lines that change something.
  if (id.is_null() && answer.json.is_null() && answer.text.empty()) {
    return withoutText ? "{\"answer\":null}\n" : "{\"answer\":null,\"text\":\"\"}\n";
  }
  json all{{"answer", answer.json}};
  if (!withoutText) all["text"] = answer.text;
  if (!id.is_null()) all["id"] = id;
  return jsonText(all) + '\n';
}

ControlError::ControlError(std::exception_ptr const& thrown) {
  try {
    std::rethrow_exception(thrown);
  } catch (InputError const& error) {
    status = BadInput;
    why = error.what();
  } catch (StoreError const& error) {
    why = error.what();
  } catch (UnreadableException const& error) {
    status = BadInput;
    why = error.what();
  } catch (std::exception const& error) {
    why = std::string("exception: ") + error.what();
  }
}

}  // namespace Host
