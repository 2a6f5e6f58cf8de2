// Frozen interface definition, kept exactly as it was released. Do not edit it: changes go
// into the definitions under interface/vendor and ship as a new version, and the .hash file
// of this version's folder covers every byte of this file.

package vendor.orbo.hardware.voxa;

@Backing(type="int") @VintfStability
enum LanguageCode {
  EN_US = 0,
  ZH_CN = 1,
  HI_IN = 2,
  ES_US = 3,
  KO_KR = 4,
  JA_JP = 5,
}
