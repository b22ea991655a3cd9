"""Wi-Fi stations as a device's driver would list them: invented, with consistent values."""

import random
from dataclasses import dataclass, replace

from meshlab.plan import MAX_STATIONS, MeshError

COUNTER_SIZE = 1 << 32
WEAKEST, STRONGEST = -88, -32  # dBm


@dataclass(frozen=True)
class Standard:
    code: int  # the driver's bit for it
    share: int  # weight among the standards of the band
    rates: tuple  # kbit/s, from the slowest modulation to the fastest


@dataclass(frozen=True)
class Band:
    path: str  # where the driver lists the band's stations
    interface: str
    noise: int  # dBm
    standards: tuple


OFDM = (6000, 9000, 12000, 18000, 24000, 36000, 48000, 54000)

# Assumes two spatial streams from 11n on; 20 MHz at 2.4 GHz, at 5 GHz 40 (11n) and 80.
BANDS = (
    Band("/tmp/assoc_list.24g", "wl0", -92, (
        Standard(0x0001, 1, (1000, 2000, 5500, 11000)),
        Standard(0x0002, 2, OFDM),
        Standard(0x0008, 8, (14400, 28900, 43300, 57800, 86700, 115600, 130000, 144400)),
        Standard(0x0020, 5, (17200, 34400, 51600, 68800, 103200, 137600, 154900, 172100, 206500, 229400, 258100,
                             286800)),
    )),
    Band("/tmp/assoc_list.5g", "wl1", -95, (
        Standard(0x0004, 1, OFDM),
        Standard(0x0008, 3, (30000, 60000, 90000, 120000, 180000, 240000, 270000, 300000)),
        Standard(0x0010, 8, (65000, 130000, 195000, 260000, 390000, 520000, 585000, 650000, 780000, 866700)),
        Standard(0x0020, 6, (72100, 144100, 216200, 288200, 432400, 576500, 648500, 720600, 864700, 960800, 1080900,
                             1201000)),
        Standard(0x0040, 2, (72100, 144100, 216200, 288200, 432400, 576500, 648500, 720600, 864700, 960800, 1080900,
                             1201000, 1297100, 1441200)),
    )),
)


@dataclass(frozen=True)
class Station:
    mac: str
    band: Band
    standard: int  # the driver's bit
    rssi: int  # dBm
    tx: int = 0  # bytes, 32 bits as the driver counts
    rx: int = 0

    @property
    def snr(self):
        return max(self.rssi - self.band.noise, 0)

    @property
    def rates(self):
        """kbit/s to and from the station: every 3 dB allow a faster modulation, and stations send weakly."""
        rates = next(row.rates for row in self.band.standards if row.code == self.standard)
        down = min(self.snr // 3, len(rates) - 1)
        return rates[down], rates[max(down - 1, 0)]

    def line(self):
        down, up = self.rates
        return (f"{self.mac} {down} {self.rssi} {self.snr} 0 {self.band.interface} {self.tx} {self.rx} {down} {up} "
                f"{self.standard:04x}\n")


def parse_line(band, line):
    mac, _, rssi, _, _, _, tx, rx, _, _, standard = line.split()
    station = Station(mac.lower(), band, int(standard, 16), int(rssi), int(tx), int(rx))
    station.rates  # a standard that the band does not have ends here
    return station


class StationFiles:
    """The lists of one device, below the root of its file system."""

    def __init__(self, root):
        self._root = root

    def read(self):
        return [station for band in BANDS for station in self._read_band(band)]

    def _read_band(self, band):
        try:
            text = self._path(band).read_text()
        except FileNotFoundError:
            return []
        try:
            return [parse_line(band, line) for line in text.splitlines()]
        except (ValueError, StopIteration):
            raise MeshError(f"{band.path}: holds a line that no lab wrote; 'mesh stations set' replaces it") from None

    def write(self, stations):
        """Replaces each list as a whole, so that no reader gets half of one."""
        for band in BANDS:
            draft = self._path(band).with_suffix(".new")
            draft.write_text("".join(station.line() for station in stations if station.band is band))
            draft.replace(self._path(band))

    def _path(self, band):
        return self._root / band.path[1:]


class Population:
    """Stations of several devices. The same seed and calls produce the same stations."""

    # Probabilities per second, of a station and of a vacant place.
    LEAVES, ROAMS, RETURNS = 0.005, 0.01, 0.2

    def __init__(self, devices, seed):
        """devices: number by name"""
        self.stations = {name: [] for name in devices}
        self._devices = devices
        self._born = dict.fromkeys(devices, 0)
        self._random = random.Random(f"{seed} {' '.join(devices)}")

    def add(self, name, count):
        self.stations[name] += [self._new_station(name) for _ in range(count)]

    def spread(self, count):
        for _ in range(count):
            self.add(self._random.choice(list(self._devices)), 1)

    def live(self, seconds, count):
        """Advances the time: stations roam, leave and return up to the count; those that stay drift."""
        before, self.stations = self.stations, {name: [] for name in self._devices}
        for name, stations in before.items():
            for station in stations:
                self._live_on(name, station, seconds)
        vacant = count - sum(map(len, self.stations.values()))
        self.spread(sum(self._random.random() < self.RETURNS * seconds for _ in range(vacant)))

    def rejoined(self, station):
        """Returns the station at another device, with counters from 0."""
        return replace(station, rssi=self._signal(), tx=0, rx=0)

    def _live_on(self, name, station, seconds):
        chance = self._random.random() / seconds
        if chance < self.LEAVES:
            return
        if chance < self.LEAVES + self.ROAMS:
            self.stations[self._random.choice(list(self._devices))].append(self.rejoined(station))
        else:
            self.stations[name].append(self._drift(station, seconds))

    def _drift(self, station, seconds):
        signal = min(max(station.rssi + self._random.randint(-3, 3), WEAKEST), STRONGEST)
        down, up = station.rates
        volume = self._random.random() ** 6 * seconds * 125  # mostly idle, now and then at full rate; 125 bytes: 1 kbit
        return replace(station, rssi=signal, tx=(station.tx + int(down * volume)) % COUNTER_SIZE,
                       rx=(station.rx + int(up * volume / 8)) % COUNTER_SIZE)

    def _new_station(self, name):
        """Its MAC contains its first device: the fourth byte is the device's number + 0x40."""
        self._born[name] = self._born[name] % MAX_STATIONS + 1
        high, low = divmod(self._born[name], 256)
        band = self._random.choices(BANDS, (2, 3))[0]
        standard = self._random.choices(band.standards, [row.share for row in band.standards])[0]
        return Station(f"02:00:5e:{0x40 + self._devices[name]:02x}:{high:02x}:{low:02x}", band, standard.code,
                       self._signal(), *(int(self._random.expovariate(1e-8)) % COUNTER_SIZE for _ in range(2)))

    def _signal(self):
        return round(min(max(self._random.gauss(-60, 12), WEAKEST), STRONGEST))
