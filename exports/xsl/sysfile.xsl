<?xml version="1.0"?>
<!-- One system file's differences: INI sections with their entries, or changed lines. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:import href="common.xsl"/>
  <xsl:template match="/SYSFILE">
    <xsl:call-template name="page">
      <xsl:with-param name="title">Differences of <xsl:value-of select="FILENAME"/></xsl:with-param>
      <xsl:with-param name="body">
        <xsl:for-each select="INI/SECTION">
          <details open="open">
            <summary class="flag-{following-sibling::CHGFLAG[1]/@flag}"><xsl:value-of select="."/></summary>
            <!-- The entries between this section and the next. -->
            <xsl:variable name="n" select="count(preceding-sibling::SECTION) + 1"/>
            <xsl:for-each select="following-sibling::ENTRIES[count(preceding-sibling::SECTION) = $n]">
              <div class="entry flag-{CHGFLAG/@flag}"><xsl:value-of select="LINE"/></div>
            </xsl:for-each>
          </details>
        </xsl:for-each>
        <xsl:for-each select="TEXT/ENTRIES">
          <div class="entry flag-{CHGFLAG/@flag}">
            <xsl:if test="LNUM"><xsl:value-of select="LNUM"/>: </xsl:if>
            <xsl:value-of select="LINE"/>
          </div>
        </xsl:for-each>
      </xsl:with-param>
    </xsl:call-template>
  </xsl:template>
</xsl:stylesheet>
