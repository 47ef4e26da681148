#!/usr/bin/env python3
"""sample_trace.py FILE [EVENTS]: writes a trace of 64 control units with errors, raw frames and a relay that is lost.

The lines are those that the library writes. The same number of events makes the same file.
"""
import sys
from random import Random

UNITS = 64
EVENTS_A_REQUEST = 13
STARTCOMM, STOPCOMM, SENDRECV = 0x8001, 0x8002, 0x8004
IDLE, EXECUTING, FINISHED = 0x8010, 0x8011, 0x8012
REQUESTS = ["22f190", "22f18c", "1003", "190209", "3e00", "31010203", "2ef1aa01020304", "360100112233445566"]
NEGATIVE_CODES = [0x31, 0x33, 0x22, 0x78]
SILENT = 0xFFFFFFFF


class Sample:
    def __init__(self, file, seed=1):
        self.file, self.random = file, Random(seed)
        self.seq, self.now, self.cop = 0, 10_000_000, 0
        self.exchanges = []  # unit, service, outcome and answer time of each

    def write(self, event, text="", tick=True):
        self.seq += 1
        tick_text = f'"tick_ms":{self.now // 1000},' if tick else ""
        self.file.write(f'{{"seq":{self.seq},"ts_us":{self.now},{tick_text}"pid":4711,"tid":4712,"ev":"{event}"{text}}}\n')

    def of_cop(self, event, text="", link=0):
        self.write(event, f',"hMod":0,"hCLL":{link},"hCoP":{self.cop}{text}')

    def after(self, us):
        self.now += us

    def start(self, kind, link, data=""):
        self.cop += 1
        size = len(data) // 2
        self.of_cop("cop_start", f',"copType":{kind},"tx_len":{size},"tx_hex":"{data}","tx_hex_len":{size},'
                                 '"tx_trunc":false,"numSend":1,"numRecv":1', link)

    def state(self, of, to, link):
        self.of_cop("cop_state", f',"from":{of},"to":{to},"dur_ms":0', link)

    def link(self, kind, link):
        self.start(kind, link)
        self.after(40)
        self.state(IDLE, FINISHED, link)
        self.of_cop("cop_free", f',"final":{FINISHED}', link)

    def packet(self, direction, kind, length):
        number = int.from_bytes(kind.encode()[::-1], "big")
        self.write("cloud_pkt", f',"dir":"{direction}","stage":"plain","type":{number},"type_str":"{kind}",'
                                f'"len":{length},"hex":"","hex_len":0,"trunc":false')

    def raw_frame(self, link):
        """What an endless reception delivers: its ComPrimitive is that of start_raw()."""
        data = self.random.randbytes(self.random.choice([2, 4, 8])).hex()
        hexed = f"{self.random.choice([0x100, 0x1A0, 0x2B3, 0x18DAF110]):08x}{data}"
        size = len(hexed) // 2
        self.write("cop_rx", f',"hMod":0,"hCLL":{link},"hCoP":{self.raw_cop},"uniq":0,"acc":0,"rx_len":{size},'
                             f'"rx_hex":"{hexed}","rx_hex_len":{size},"rx_trunc":false')

    def meta(self, link, raw):
        self.of_cop("cop_sendrecv_meta", f',"raw":{raw},"reqAddrMode":1,"canFuncReqId":0,"canFuncReqFormat":0,'
                    '"canPhysReqId":0,"canPhysReqFormat":0,"canRespUSDTId":0,"canRespUSDTFormat":0,"rc78":2', link)

    def start_raw(self, link):
        self.link(STARTCOMM, link)
        self.start(SENDRECV, link)
        self.raw_cop = self.cop
        self.state(IDLE, EXECUTING, link)
        self.meta(link, "true")

    def outcome(self):
        dice = self.random.random()
        return "negative" if dice < 0.04 else "silent" if dice < 0.05 else "ok"

    def exchange(self, unit, relay, data, outcome, answer):
        request_id, response_id = 0x600 + unit, 0x680 + unit
        size = len(data) // 2
        self.write("comm_req_sent", f',"req_id":{self.cop},"tx_len":{size},"tx_hex":"{data}","tx_hex_len":{size},'
                   f'"tx_trunc":false,"can_id_tx_func":{request_id},"can_id_tx_phys":{request_id},'
                   f'"can_id_rx":{response_id},"timeout":1000,"transport":0')
        if relay:
            self.packet("tx", "CREQ", size + 24)
        sent, wait = self.now, SILENT
        if outcome == "silent":
            self.after(1_200_000 if relay else 1_000_000)
        else:
            self.after(int(min(400_000, self.random.lognormvariate(8.2, 0.7))) + unit * 20)
            wait = (self.now - sent) // 1000
        size = len(answer) // 2
        if relay:
            self.packet("rx", "CRES", size + 24)
        self.write("comm_res_received", f',"req_id":{self.cop},"wait_time":{wait},"rx_len":{size},'
                                        f'"rx_hex":"{answer}","rx_hex_len":{size},"rx_trunc":false')
        self.exchanges.append((unit, int(data[:2], 16), outcome, self.now - sent))

    def request(self, unit, relay):
        random = self.random
        request_id, response_id = 0x600 + unit, 0x680 + unit
        data = random.choice(REQUESTS)
        service = int(data[:2], 16)
        outcome = self.outcome()
        self.start(SENDRECV, unit, data)
        self.after(30)
        self.state(IDLE, EXECUTING, unit)
        self.meta(unit, "false")
        self.of_cop("cop_ecu_candidate", f',"idx":0,"uniq":{unit},"canPhysReqId":{request_id},'
                                         f'"canRespUSDTId":{response_id}', unit)
        self.after(20)
        # An answer that does not fit now and then: the request is sent again.
        if outcome == "ok" and random.random() < 0.02:
            self.exchange(unit, relay, data, outcome, "c100")
        fitting = f"7f{service:02x}{random.choice(NEGATIVE_CODES):02x}" if outcome == "negative" else \
            f"{service + 0x40:02x}{data[2:6]}" + random.choice(["", "5754564445", "00112233445566778899aabb"])
        answer = "" if outcome == "silent" else fitting
        self.exchange(unit, relay, data, outcome, answer)
        size = len(answer) // 2
        if outcome != "silent":
            self.of_cop("cop_rx", f',"uniq":{unit},"acc":1,"rx_len":{size},"rx_hex":"{answer}",'
                                  f'"rx_hex_len":{size},"rx_trunc":false', unit)
            begin = self.now
            self.after(15)
            self.of_cop("notify_end", f',"itemType":4864,"evtType":2049,"t0_us":{begin},"t1_us":{self.now},'
                                      '"dur_us":15', unit)
        self.state(EXECUTING, FINISHED, unit)
        self.of_cop("cop_free", f',"final":{FINISHED}', unit)
        self.after(random.randrange(50, 400))

    def run(self, events):
        self.write("log_start", ',"flush_ms":500,"session":1', tick=False)
        for unit in range(UNITS):
            self.link(STARTCOMM, unit)
        self.start_raw(UNITS)
        unit, requests = 0, 0
        while self.seq < events - 3 * UNITS - 2:
            # The relay is lost for a while in the middle.
            relay = requests % 2000 < 900 or requests % 2000 > 1000
            if requests % 2000 == 900:
                self.after(3_000_000)
                self.packet("tx", "HELO", 96)
            self.request(unit, relay)
            for _ in range(requests % 4):
                self.after(130)
                self.raw_frame(UNITS)
            unit, requests = (unit + 1) % UNITS, requests + 1
        for unit in range(UNITS):
            self.link(STOPCOMM, unit)
        self.write("log_stop", tick=False)


def write(path, events):
    with open(path, "w", encoding="utf-8") as file:
        sample = Sample(file)
        sample.run(events)
    return sample


if __name__ == "__main__":
    write(sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 60_000)
