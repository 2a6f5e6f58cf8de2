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
