<?xml version="1.0"?>
<!-- One snapshot's information: its facts, the machine it was taken on, and what it watches. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:import href="common.xsl"/>
  <xsl:template match="/ORVALISBCF">
    <xsl:call-template name="page">
      <xsl:with-param name="title">Snapshot <xsl:value-of select="FILE"/></xsl:with-param>
      <xsl:with-param name="body">
        <table>
          <tr><th>Description</th><td><xsl:value-of select="DESCRIPTION"/></td></tr>
          <tr><th>Taken</th><td><xsl:value-of select="TIMESTAMP"/></td></tr>
          <tr><th>Flags</th><td><xsl:value-of select="FLAGS"/></td></tr>
          <tr><th>Windows</th><td><xsl:value-of select="WINVERSION"/></td></tr>
          <tr><th>User</th><td><xsl:value-of select="USERNAME"/></td></tr>
          <tr><th>Processor</th><td><xsl:value-of select="SYSINFO/CPU"/> (<xsl:value-of select="SYSINFO/CPUVENDOR"/>)</td></tr>
          <tr><th>Memory</th><td><xsl:value-of select="SYSINFO/MEM"/> KB</td></tr>
        </table>
        <h2>Drives</h2>
        <table>
          <xsl:for-each select="DRIVES/DRIVE">
            <tr><td><xsl:value-of select="DRVNAME"/></td><td><xsl:value-of select="DRVTYPE/@type"/></td>
                <td><xsl:value-of select="DRVSPACE"/></td><td><xsl:value-of select="DRVNET"/></td></tr>
          </xsl:for-each>
        </table>
        <xsl:for-each select="SYSFILES|DIRECTORIES|REGKEYS|ASSETS">
          <h2><xsl:value-of select="name()"/></h2>
          <ul><xsl:for-each select="*"><li><xsl:value-of select="."/></li></xsl:for-each></ul>
        </xsl:for-each>
      </xsl:with-param>
    </xsl:call-template>
  </xsl:template>
</xsl:stylesheet>
