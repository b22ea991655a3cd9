#!/bin/sh
# Compares what the platform's library and its commands nvram, wl and kcfg print and store. A row is: exit status,
# words, "=>", the beginning of the output (with escapes). Each begins with four settings and no configuration file.
set -u
calls=$PWD/tests/platform_calls
export KV_NVRAM_FILE=n KV_KCFG_FILE=f
failed=0

# Changes an account, a radio, the key and the LEDs, and chooses what a partial reset keeps.
alter() {
    for name in nat_intf_setting.1.password wifi_radio.1.countryCode sync_key_source.1.key; do kcfg set $name x; done
    kcfg set led_ctrl.1.enable 0 && kcfg set factory_reset.1.FactoryResetUnpurgedList "$1"
}
# Runs the calls of the library; prints lines from their facility on, long ones shortened.
calls() {
    $EMULATOR "$calls" "$1" >q 2>&1
    status=$?
    sed -e 's/^\(<[0-9]*>\)\{0,1\}.* platform_calls:\{0,1\} /\1/' -e 's/x\{3900,4095\}\.\.\.$/X.../' q
    return $status
}
show() { grep -e x -e enable f | tr -d ' \n' && echo .; }

while IFS= read -r row; do
    case $row in '' | '#'*) continue ;; esac
    rm -rf /tmp/t && mkdir /tmp/t && cd /tmp/t || exit 1
    printf 'one=1\nwl0_chanspec=36/80\nwl0_ifname=eth1\nwl1.2_ifname=ap2\n' >n
    words=${row%% =>*} expected=${row#* =>}
    expected=$(printf '%b' "${expected# }")
    output=$(exec 2>&1; eval "${words#* }")
    status=$?
    case "$status $output" in
    "${words%% *} $expected" | "${words%% *} $expected"${expected:+*}) ;;
    *)
        printf '%s\nfound: %s %s\n' "$row" "$status" "$output"
        failed=1
        ;;
    esac
done <<'END'
# Settings
0 printf 'b=1\n=x\nb d=1\nn=1\0l\n\nb=2\nempty=\neq==a\ncr=x\r\nc:1.2-3_=\377 \nlast=9' >n; nvram show 2>/dev/null => b=2\nc:1.2-3_=\0377 \ncr=x\r\nempty=\neq==a\nlast=9
0 echo a b=1 >n; nvram show => nvram: n:1: skipped, not a NAME=VALUE line
1 nvram get wl0_ifnam =>
2 nvram set "$(printf 'n=a\nb=c')" => nvram:
0 nvram set 'k-1:x.y_z= "$(x)\=' && nvram get k-1:x.y_z =>  "$(x)\\=
1 chmod 640 n && nvram unset wl0_ifname; stat -c %a n; nvram get wl0_ifname => 640
1 mkfifo q; KV_NVRAM_FILE=q nvram show => nvram: q: open: Invalid argument
1 printf a=%1048566s >n; nvram set b=12345678 => nvram: n: write: File too large
0 for w in a b c d; do for i in $(seq 40); do nvram set $w$i=x; done & done; wait; wc -l <n => 164
# The library: escaped and cut lines, levels and targets of facilities, printed lines, commands, settings
0 KV_LOG_LEVEL=x calls log => KV_LOG_LEVEL=x is not one of 0 1 2 3 4 5 6 7; using 6\nmsg info: a\\x0ab\\x09\\x7f\\xc2\\x9b~ \\x5cx0a\nmsg error: X...\n99 error: as the host's\nhost warning: log setting 0 2 7 ignored: expected a facility from 0 to 15, a target 0 or 1 and a level from 0 to 7\nhost error: file.c:12 work: 3\n<15>apcfg debug: own level 7
0 calls stopped =>
0 calls print => print: === Start ===\nprint: 00 01 \nprint: name a\\x0ab\nmsg error: between\nprint: X...\nprint: unfinished
0 calls run => out\nerr\nhost warning: cannot read the settings: /tmp: open: Is a directory\n0 3 137 -1
# Radios
0 wl -i wl0 chanspec 6l; nvram get wl0_chanspec => 6l
2 wl -i wl0 chanspec 36/85 => wl: '36/85' is not a chanspec
2 wl -i wl0 chanspec 4294967302 => wl: '4294967302' is not a chanspec
1 wl -i 'wl0;x' chanspec 6 => wl: wl0;x: No such interface
0 wl -i wl0 country_abbrev_override DE/7; nvram get wl0_country_abbrev_override => DE/7
# The configuration service
0 kcfg list => RDM_OID_NAT_INTF_SETTING (68104): 2 instances\nRDM_OID_FACTORY_RESET (75172): 1 instance
0 kcfg get 110680.2 => RDM_OID_WIFI_RADIO.2.ifName=wl1\nRDM_OID_WIFI_RADIO.2.countryCode=DE
0 kcfg get --json rdm_oid_nat_intf_setting => [ { "userName": "admin", "password": "admin" }, {
0 kcfg set nat_intf_setting.1.password "$(printf 'a\nb\033')"; kcfg get nat_intf_setting.1 => RDM_OID_NAT_INTF_SETTING.1.userName=admin\nRDM_OID_NAT_INTF_SETTING.1.password=a\\x0ab\\x1b
2 kcfg set led_ctrl.1.enable 2 => kcfg: RDM_OID_LED_CTRL.1.enable: expected a number from 0 to 1;
2 kcfg set led_ctrl.1.colour 2 => kcfg: led_ctrl.1.colour: no such field
1 kcfg --help >/dev/full => kcfg: standard output: No space left on device
0 for w in 1 2; do (for i in $(seq 40); do kcfg set wifi_radio.$w.countryCode $i; done) & done; wait; grep -o '"40"' f => "40"\n"40"
# Readers that compare whole seconds see the change of the LEDs.
0 c=/tmp/.kv1905_conf; printf 'A=1\nLedEnable=1\nB=' >$c; touch -d @4102444800 $c; kcfg set led_ctrl.1.enable 0; cat $c; stat -c ' %Y' $c; rm $c => A=1\nLedEnable=0\nB= 4102444801
# Resets: a partial one keeps accounts (1), radios and the key (2), or both (3).
0 alter 1; kcfg reset --partial; show => "password":"x""enable":1.
0 alter 2; kcfg reset --partial; show => "enable":1"countryCode":"x","key":"x".
0 alter 3; kcfg reset --partial; show => "password":"x""enable":1"countryCode":"x","key":"x".
0 alter 3; kcfg reset; show => "enable":1.
# Damaged files, and damage in a file
0 : >f; kcfg get led_ctrl.1.enable => kcfg: f: damaged: line 1: the text ends too early; using the factory defaults\n1
0 printf '{}\0\n' >f; kcfg get led_ctrl.1.enable => kcfg: f: damaged: line 1: unexpected text after the end
0 echo '{"RDM_OID_LED_CTRL":[]}' >f; kcfg get led_ctrl.1.enable => kcfg: f: damaged: RDM_OID_LED_CTRL: not a list of 1 instances
0 printf %1048577s >f; kcfg get led_ctrl.1.enable => kcfg: f: damaged: larger than 1048576 bytes
0 echo { >f; kcfg set led_ctrl.1.enable 0 2>q; kcfg get led_ctrl.1.enable; cat f.damaged => 0\n{
0 echo '{"RDM_OID_LED_CTRL":[{"enable":4294967297}]}' >f; kcfg get led_ctrl.1.enable => kcfg: f: RDM_OID_LED_CTRL.1.enable: expected a number from 0 to 1; using the factory default\n1
0 echo '{"RDM_OID_LED_CTRL":[{"enable":3}],"own":{}}' >f; kcfg set wifi_radio.1.ifName x; grep -o -e 3 -e own f => 3\nown
# Files that cannot be used
1 echo {} >d; KV_KCFG_DEFAULTS=d kcfg reset => kcfg: d: cannot use the factory defaults: RDM_OID_NAT_INTF_
1 trap '' XFSZ; ulimit -f 0; kcfg reset => kcfg: f: write: File too large
1 mkfifo f; kcfg list => kcfg: f: open: Invalid argument
1 flock f.lock sleep 9 >q 2>&1 & sleep 0.2; timeout 4 kcfg reset; s=$?; kill %1; exit $s => kcfg: f.lock: wait for another process's lock:
END
exit $failed
