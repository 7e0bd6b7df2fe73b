/* A host in C (or C++): reports an event, and waits until the service has accepted it.
 * Usage: host SERVICE-URL DATA-FOLDER [SYSTEM-VERSION] */
#include <quillmar/c/quillmar.h>
#include <stdio.h>
#include <string.h>

/* The ad network, which a phone would have. */
static void update_postback(void *context, int32_t fine_value, quillmar_coarse_value coarse_value, bool lock_window,
                            quillmar_ad_network_completion *completion) {
  static const char *const names[] = {"high", "medium", "low"};
  (void)context;
  printf("fine value %d, coarse value %s%s\n", (int)fine_value, names[coarse_value], lock_window ? ", locked" : "");
  quillmar_ad_network_completion_call(completion, NULL);
}

static void write_line(void *context, const char *subsystem, const char *category, quillmar_log_severity severity,
                       const char *line) {
  (void)context, (void)subsystem, (void)category, (void)severity;
  fprintf(stderr, "%s\n", line);
}

int main(int argc, char **argv) {
  quillmar_platform_options options;
  quillmar_ad_network network;
  quillmar_log_sink sink;
  quillmar_parameter revenue;
  quillmar_platform *platform = NULL;
  quillmar_instance *events = NULL;
  bool delivered;
  if (argc < 3) {
    fprintf(stderr, "Usage: %s SERVICE-URL DATA-FOLDER [SYSTEM-VERSION]\n", argv[0]);
    return 2;
  }
  memset(&options, 0, sizeof options);
  options.size = sizeof options;
  options.service_url = argv[1];
  options.data_directory = argv[2];
  options.system_version = argc > 3 ? argv[3] : "17.4";
  memset(&network, 0, sizeof network);
  network.size = sizeof network;
  network.update_coarse_postback = update_postback;
  memset(&sink, 0, sizeof sink);
  sink.size = sizeof sink;
  sink.write = write_line;
  if (quillmar_platform_create(&options, &platform) != QUILLMAR_OK ||
      quillmar_platform_set_ad_network(platform, &network) != QUILLMAR_OK ||
      quillmar_platform_set_log_sink(platform, &sink) != QUILLMAR_OK ||
      quillmar_create(platform, &events) != QUILLMAR_OK) {
    return 1;
  }
  quillmar_set_log_level(events, QUILLMAR_LOG_ERROR);
  quillmar_configure(events, "your-verification-key");
  memset(&revenue, 0, sizeof revenue);
  revenue.name = "revenue";
  revenue.type = QUILLMAR_VALUE_NUMBER;
  revenue.value.number = 9.99;
  quillmar_send_event(events, "purchase", &revenue, 1);
  delivered = quillmar_wait_until_delivered(events, 10000);
  quillmar_drain(events, 10000);
  quillmar_release(events);
  quillmar_platform_release(platform);
  return delivered ? 0 : 1;
}
