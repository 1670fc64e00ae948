#include "app/BridgeMessageHandler.h"

#include <webkit/webkit.h>

#include <cstdio>
#include <exception>

#include "app/BridgeMessage.h"
#include "app/JscJson.h"
#include "app/MainThread.h"
#include "app/MessageReply.h"
#include "app/SignalConnect.h"
#include "contracts/BridgeRequest.h"
#include "contracts/GObjectPtr.h"

namespace vorna::app {
namespace {

struct ReplyDeleter {
  void operator()(WebKitScriptMessageReply* reply) const {
    webkit_script_message_reply_unref(reply);
  }
};
using ReplyPtr = std::unique_ptr<WebKitScriptMessageReply, ReplyDeleter>;

// The reply object is built member by member: the body can be tens of
// megabytes of base64, which is cheaper as one string than as JSON text.
void sendReply(WebKitScriptMessageReply* reply, JSCContext* context, const MessageReply& answer) {
  auto object =
      contracts::GObjectPtr<JSCValue>::adopt(jsc_value_new_object(context, nullptr, nullptr));
  auto status =
      contracts::GObjectPtr<JSCValue>::adopt(jsc_value_new_number(context, answer.status));
  jsc_value_object_set_property(object.get(), "status", status.get());
  auto headers =
      contracts::GObjectPtr<JSCValue>::adopt(jsc_value_new_object(context, nullptr, nullptr));
  for (const auto& [name, value] : answer.headers) {
    auto text =
        contracts::GObjectPtr<JSCValue>::adopt(jsc_value_new_string(context, value.c_str()));
    jsc_value_object_set_property(headers.get(), name.c_str(), text.get());
  }
  jsc_value_object_set_property(object.get(), "headers", headers.get());
  auto body = contracts::GObjectPtr<JSCValue>::adopt(
      jsc_value_new_string(context, answer.bodyBase64.c_str()));
  jsc_value_object_set_property(object.get(), "bodyBase64", body.get());
  webkit_script_message_reply_return_value(reply, object.get());
}

}  // namespace

BridgeMessageHandler::BridgeMessageHandler(std::shared_ptr<HostContext> host)
    : host_(std::move(host)), queue_(kQueueLabel, 1) {}

void BridgeMessageHandler::connect(WebKitUserContentManager* manager) {
  webkit_user_content_manager_register_script_message_handler_with_reply(manager, kName, nullptr);
  connectSignal(
      manager, "script-message-with-reply-received::vorna",
      +[](WebKitUserContentManager*, JSCValue* value, WebKitScriptMessageReply* reply,
          gpointer data) -> gboolean {
        auto* self = static_cast<BridgeMessageHandler*>(data);
        try {
          std::optional<BridgeMessage> message;
          if (jsc_value_is_object(value) && !jsc_value_is_array(value)) {
            std::optional<contracts::Json> json = jsonFromJsc(value);
            message = json ? BridgeMessage::decode(*json) : std::nullopt;
          }
          if (!message) {
            webkit_script_message_reply_return_error_message(reply, kNotAnObject);
            return TRUE;
          }
          JSCContext* context = jsc_value_get_context(value);
          if (message->op == "__probe") {
            sendReply(reply, context, MessageReply::probe(message->body.size()));
            return TRUE;
          }
          std::shared_ptr<contracts::BridgeHandling> bridge = self->host_->bridge();
          if (!bridge) {
            sendReply(reply, context, MessageReply::noWorkspace());
            return TRUE;
          }
          contracts::BridgeRequest request = contracts::BridgeRequest::make(
              message->method, std::move(message->op), std::move(message->query), message->headers,
              std::move(message->body));
          // The reply and the context are engine objects: they travel to the
          // queue and back untouched and are released on the main thread.
          auto held = std::make_shared<std::pair<ReplyPtr, contracts::GObjectPtr<JSCContext>>>(
              ReplyPtr(webkit_script_message_reply_ref(reply)),
              contracts::GObjectPtr<JSCContext>::ref(context));
          self->queue_.submit([bridge = std::move(bridge), request = std::move(request),
                               held = std::move(held)]() mutable {
            MessageReply answer;
            try {
              answer = MessageReply::from(bridge->handle(request));
            } catch (const std::exception& error) {
              answer = MessageReply::from(contracts::BridgeResponse::error(500, error.what()));
            }
            postToMainThread([answer = std::move(answer), held = std::move(held)] {
              sendReply(held->first.get(), held->second.get(), answer);
            });
          });
        } catch (const std::exception& error) {
          std::fprintf(stderr, "Vorna: a bridge message failed: %s\n", error.what());
          webkit_script_message_reply_return_error_message(reply, "vorna: the host failed");
        }
        return TRUE;
      },
      this);
}

void BridgeMessageHandler::disconnect(WebKitUserContentManager* manager) {
  g_signal_handlers_disconnect_by_data(manager, this);
  webkit_user_content_manager_unregister_script_message_handler(manager, kName, nullptr);
}

}  // namespace vorna::app
