/*
 * A program built on an installed libtarvik_qmi, as any program outside this project would be:
 *
 *   tarvik-consumer SOCKET ITEM HEX DSI
 *
 * reaches tarvik-modemd at SOCKET, writes NV item ITEM of subscription 0 (HEX: its bytes) and
 * reads it back, sets the SAR DSI and reads it back, printing each step. Exit status 0 when both
 * came back as sent, 1 when not, 2 for bad arguments.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <qmi_client_host.h>
#include <tarvik_extend_cmn.h>
#include <tarvik_extend_nvefs.h>

static int parse_hex(const char *hex, unsigned char *out, size_t capacity, size_t *len) {
  size_t n = strlen(hex);
  if (n == 0 || n % 2 != 0 || n / 2 > capacity) return -1;
  for (size_t i = 0; i < n / 2; ++i) {
    unsigned int byte;
    if (sscanf(hex + 2 * i, "%2x", &byte) != 1) return -1;
    out[i] = (unsigned char)byte;
  }
  *len = n / 2;
  return 0;
}

int main(int argc, char **argv) {
  unsigned char data[64], back[64];
  size_t len = 0;
  if (argc != 5 || parse_hex(argv[3], data, sizeof(data), &len) != 0) {
    fprintf(stderr, "usage: tarvik-consumer SOCKET ITEM HEX DSI (HEX: 1 to 64 bytes)\n");
    return 2;
  }
  const uint32_t item = (uint32_t)strtoul(argv[2], NULL, 0);
  const uint32_t dsi = (uint32_t)strtoul(argv[4], NULL, 0);

  char transport[256];
  snprintf(transport, sizeof(transport), "unix:%s", argv[1]);
  int status = qmi_client_host_select_transport(transport);
  printf("transport %s: %d\n", transport, status);
  if (status != QMI_NO_ERR) return 1;

  status = tarvik_nv_write_ex(0, item, data, (uint32_t)len);
  printf("nv write 0 %u: %d\n", item, status);
  uint32_t back_len = sizeof(back);
  status = tarvik_nv_read(0, item, back, &back_len);
  printf("nv read 0 %u: %d, %u bytes:", item, status, back_len);
  for (uint32_t i = 0; status == 0 && i < back_len; ++i) printf(" %02x", back[i]);
  printf("\n");
  const int nv_ok = status == 0 && back_len == len && memcmp(back, data, len) == 0;

  status = tarvik_set_sar_dsi(dsi);
  printf("sar set %u: %d\n", dsi, status);
  const int got = tarvik_get_sar_dsi();
  printf("sar get: %d\n", got);
  const int sar_ok = status == 0 && got == (int)dsi;

  printf("%s\n", nv_ok && sar_ok ? "both came back as sent" : "MISMATCH");
  return nv_ok && sar_ok ? 0 : 1;
}
